// Big-endian writer appending to a byte vector it does not own.
#pragma once

#include <cstring>

#include "foundation/ZVector.h"

class DataOutput {
public:
    explicit DataOutput(ZVector<unsigned char, 10>& bytes)
        : myBytes(bytes), mySize(bytes.getSize()), myReusing(false), myHighestPoolReference(0) {}

    // Writes from the start of `buffer`, which it grows but never shrinks:
    // the bytes written are the first getSize() of it, and a buffer kept
    // from one class to the next is not grown or filled again.
    static DataOutput reusing(ZVector<unsigned char, 10>& buffer) { return DataOutput(buffer, true); }

    void writeUnsignedByte(int value) { *reserve(1) = (unsigned char)value; }
    void writeUnsignedShort(int value) {
        unsigned char* p = reserve(2);
        p[0] = (unsigned char)(value >> 8);
        p[1] = (unsigned char)value;
    }
    void writeInt(int value) {
        unsigned char* p = reserve(4);
        p[0] = (unsigned char)(value >> 24);
        p[1] = (unsigned char)(value >> 16);
        p[2] = (unsigned char)(value >> 8);
        p[3] = (unsigned char)value;
    }
    void writeLong(long long value) {
        writeInt((int)(value >> 32));
        writeInt((int)value);
    }
    void write(const unsigned char* bytes, int count) {
        if (count > 0) memcpy(reserve(count), bytes, count);
    }
    // The only little-endian writer.
    void writeIntLE(int value) {
        unsigned char* p = reserve(4);
        p[0] = (unsigned char)value;
        p[1] = (unsigned char)(value >> 8);
        p[2] = (unsigned char)(value >> 16);
        p[3] = (unsigned char)(value >> 24);
    }

    int getSize() const { return mySize; }
    // The bytes written so far, getSize() of them.
    unsigned char* getData() { return myBytes.getElements(); }

    // Pool indices written by derived data (stack map items), so that a class
    // writer can tell whether constants added while parsing are needed.
    void notePoolReference(int index) {
        if (index > myHighestPoolReference) myHighestPoolReference = index;
    }
    int getHighestPoolReference() const { return myHighestPoolReference; }
    void setHighestPoolReference(int index) { myHighestPoolReference = index; }

    // Overwrites four bytes already written, for a length known only later.
    void patchInt(int at, int value) {
        unsigned char* p = myBytes.getElements() + at;
        p[0] = (unsigned char)(value >> 24);
        p[1] = (unsigned char)(value >> 16);
        p[2] = (unsigned char)(value >> 8);
        p[3] = (unsigned char)value;
    }
    // Drops the bytes from `from` to `to`, closing the gap.
    void cut(int from, int to) {
        unsigned char* p = myBytes.getElements();
        memmove(p + from, p + to, mySize - to);
        mySize -= to - from;
        if (!myReusing) myBytes.resize(mySize);
    }

    // Room for `count` more bytes, to be filled by the caller.
    unsigned char* reserve(int count) {
        int at = mySize;
        if (at + count > myBytes.getSize()) grow(at + count);
        mySize = at + count;
        return myBytes.getElements() + at;
    }
    static void putU2(unsigned char* p, int value) {
        p[0] = (unsigned char)(value >> 8);
        p[1] = (unsigned char)value;
    }

private:
    DataOutput(ZVector<unsigned char, 10>& buffer, bool reusing)
        : myBytes(buffer), mySize(0), myReusing(reusing), myHighestPoolReference(0) {}
    // An appending writer keeps the vector's size equal to what it wrote; a
    // reusing one grows it in large steps.
    void grow(int size) {
        if (myReusing && size < myBytes.getSize() * 2) size = myBytes.getSize() * 2;
        if (myReusing && size < 4096) size = 4096;
        myBytes.resize(size);
    }

    ZVector<unsigned char, 10>& myBytes;
    int mySize;
    bool myReusing;
    int myHighestPoolReference;
};
