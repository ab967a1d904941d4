// Shared pieces of the database tests: a fresh database per test, a writer
// that keeps its bytes in memory, and a reader for what it wrote.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "db/DB.h"
#include "snapshot/AbstractWriter.h"
#include "snapshot/Progress.h"

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
    bool atEnd() const { return myPosition == myBytes.size(); }
    size_t position() const { return myPosition; }

private:
    std::vector<uint8_t> myBytes;
    bool myLittleEndian;
    size_t myPosition = 0;
};

// A fresh ourDB for each test, made as the load sequence makes it.
class DBTest : public ::testing::Test {
protected:
    static constexpr int TELEMETRY_LIMIT = 5;

    void SetUp() override {
        DB::resetForTests();
        DB::createAndInitializeDB(TELEMETRY_LIMIT);
        db = ourDB;
    }
    void TearDown() override { DB::resetForTests(); }

    int str(const char* text) { return StringPool::getStrIDImpl(lock, text, false); }
    std::string text(int strId) {
        const char* value = StringPool::getString(lock, strId);
        return value != nullptr ? value : "<null>";
    }
    int method(const char* name, const char* className = "a.B") {
        return ZMethod::getByName(lock, className, name, "()", "void", "B.java", false);
    }
    // The bytes of one table written since `since`.
    std::vector<uint8_t> writeTable(DBTableBase* table, int since) {
        MemoryWriter writer;
        Progress progress(-1);
        table->writeTable(writer, since, 0, 0, &progress);
        return writer.done();
    }

    LockHolder lock{&ourLock, "test"};
    DB* db = nullptr;
};
