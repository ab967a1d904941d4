// Bytes as the writers make them, for tests: a writer that keeps them in
// memory, a reader of ints, longs and strings in either byte order, a whole
// file's bytes, and a socket pair to send them through.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "foundation/AbstractWriter.h"

class MemoryWriter : public AbstractWriter {
public:
    explicit MemoryWriter(int capacity = 64, bool littleEndian = false) : AbstractWriter(capacity, littleEndian, true) {}
    void flush() override {
        bytes.insert(bytes.end(), getBuffer(), getBuffer() + getPosition());
        flushes.push_back(getPosition());
        discardBuffer();
    }
    const std::vector<uint8_t>& done() {
        flush();
        return bytes;
    }
    std::vector<uint8_t> bytes;
    std::vector<int> flushes;
};

class StreamReader {
public:
    explicit StreamReader(const std::vector<uint8_t>& bytes, bool littleEndian = false)
        : myBytes(bytes), myLittleEndian(littleEndian) {}
    uint64_t readBits(int count) {
        EXPECT_LE(myPosition + count, myBytes.size()) << "read past the end";
        if (myPosition + count > myBytes.size()) return 0;
        uint64_t value = 0;
        for (int i = 0; i < count; i++) {
            int index = myLittleEndian ? count - 1 - i : i;
            value = (value << 8) | myBytes[myPosition + index];
        }
        myPosition += count;
        return value;
    }
    int readByte() { return (int)readBits(1); }
    int readShort() { return (int16_t)readBits(2); }
    int readInt() { return (int32_t)readBits(4); }
    int64_t readLong() { return (int64_t)readBits(8); }
    // Null for the count -1.
    std::string readString(bool* isNull = nullptr) {
        int count = readInt();
        if (isNull != nullptr) *isNull = count == -1;
        std::string text;
        for (int i = 0; i < count; i++) text.push_back((char)readByte());
        return text;
    }
    void skip(size_t count) { myPosition += count; }
    bool atEnd() const { return myPosition == myBytes.size(); }
    size_t position() const { return myPosition; }
    size_t size() const { return myBytes.size(); }

private:
    std::vector<uint8_t> myBytes;
    bool myLittleEndian;
    size_t myPosition = 0;
};

inline std::vector<uint8_t> readFileBytes(const std::string& path) {
    std::vector<uint8_t> bytes;
    FILE* file = fopen(path.c_str(), "rb");
    if (file == nullptr) return bytes;
    int c;
    while ((c = fgetc(file)) != EOF) bytes.push_back((uint8_t)c);
    fclose(file);
    return bytes;
}

// A connected pair of Unix stream sockets: one end to write to, the other to
// read from; both closed at the end unless closed before.
struct SocketPair {
    int ends[2] = {-1, -1};
    SocketPair() { EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends)); }
    ~SocketPair() {
        closeWriter();
        closeReader();
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;
    int writer() const { return ends[0]; }
    int reader() const { return ends[1]; }
    void closeWriter() { closeEnd(0); }
    void closeReader() { closeEnd(1); }
    // What arrives at the reading end until the writing end is closed.
    std::vector<uint8_t> readAll() const {
        std::vector<uint8_t> bytes;
        uint8_t piece[65536];
        ssize_t count;
        while ((count = read(reader(), piece, sizeof(piece))) > 0) bytes.insert(bytes.end(), piece, piece + count);
        return bytes;
    }

private:
    void closeEnd(int i) {
        if (ends[i] >= 0) close(ends[i]);
        ends[i] = -1;
    }
};
