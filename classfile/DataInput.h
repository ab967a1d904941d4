// Big-endian reader over class-file bytes it does not own. Every read is
// bounds-checked, and running off the end fails with the vector's own
// "zvector::[]" rather than reading garbage.
#pragma once

#include <cstring>

#include "foundation/Failure.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class DataInput {
public:
    explicit DataInput(ZVector<unsigned char, 10>& bytes) : myData(bytes.getElements()), mySize(bytes.getSize()), myPosition(0) {}
    // Over bytes held elsewhere (a raw attribute); they must stay put while read.
    DataInput(const unsigned char* bytes, int size) : myData(bytes), mySize(size), myPosition(0) {}

    int readUnsignedByte() { return *take(1); }
    int readUnsignedShort() {
        const unsigned char* p = take(2);
        return (p[0] << 8) | p[1];
    }
    int readInt() {
        const unsigned char* p = take(4);
        return (int)(((unsigned)p[0] << 24) | ((unsigned)p[1] << 16) | ((unsigned)p[2] << 8) | p[3]);
    }
    long long readLong() {
        long long high = (unsigned)readInt();
        long long low = (unsigned)readInt();
        return (long long)(((unsigned long long)high << 32) | (unsigned long long)low);
    }
    void readFully(unsigned char* target, int count) {
        KZT_ASSERT(count >= 0);
        if (count > 0) memcpy(target, take(count), count);
    }
    // Reads `count` bytes as a string; the string adds its own terminating zero.
    ZString readString(int count) {
        KZT_ASSERT(count >= 0);
        if (count == 0) return ZString();
        return ZString((const char*)take(count), count);
    }
    void skip(int count) {
        KZT_ASSERT(count >= 0);
        if (count > 0) take(count);
    }

    int getPosition() const { return myPosition; }
    int available() const { return mySize - myPosition; }
    // The next `count` bytes, after checking that they exist; not consumed.
    const unsigned char* peek(int count) {
        const unsigned char* p = take(count);
        myPosition -= count;
        return p;
    }

private:
    const unsigned char* take(int count) {
        if (count < 0 || (long long)myPosition + count > mySize) {
            zvectorFail("zvector::[]", myPosition < mySize ? mySize : myPosition, mySize);
        }
        const unsigned char* p = myData + myPosition;
        myPosition += count;
        return p;
    }

    const unsigned char* myData;
    int mySize;
    int myPosition;
};
