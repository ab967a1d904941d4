// AbstractWriter: the buffer that all binary output goes through, with typed
// puts in either byte order. Subclasses decide where a full buffer drains to.
#pragma once

#include <jni.h>
#include <cstdint>
#include <cstring>

#include "foundation/ZString.h"

class AbstractWriter {
public:
    AbstractWriter(int capacity, bool littleEndian, bool oid32);
    virtual ~AbstractWriter();
    AbstractWriter(const AbstractWriter&) = delete;
    AbstractWriter& operator=(const AbstractWriter&) = delete;

    // Drains the pending bytes; the position is 0 afterwards.
    virtual void flush() = 0;

    void writeByte(int value) {
        if (myPosition == myCapacity) drain();
        myBuffer[myPosition++] = (uint8_t)value;
    }
    void writeShort(int value) { put((uint16_t)value); }
    void writeInt(int value) { put((uint32_t)value); }
    void writeLong(int64_t value) { put((uint64_t)value); }
    void writeFloat(float value);
    void writeDouble(double value);
    void writeOID(int64_t oid) {
        if (myOid32) writeInt((int)oid);
        else writeLong(oid);
    }
    // Byte count, then the bytes without a terminator; a null text is the count -1.
    void writeString(const ZString& text) { writeBytes(text.c_str(), text.getLength()); }
    void writeString(const char* text);
    // The raw bytes, draining as often as needed.
    void writeRaw(const void* bytes, int count);

    // One value of a JVM primitive type, by its signature letter.
    void writePrimitive(int64_t value, char signature);
    // `count` values laid out as the JVM keeps an array of that type.
    void writePrimitives(const void* values, char signature, int count);
    static int64_t jvalueAsLong(char signature, jvalue value);
    // Bytes of a primitive type, -1 for anything else.
    static int getPrimitiveSize(char signature);

    bool isOid32() const { return myOid32; }
    bool isLittleEndian() const { return myLittleEndian == 1; }
    int getCapacity() const { return myCapacity; }
    int getPosition() const { return myPosition; }

protected:
    const uint8_t* getBuffer() const { return myBuffer; }
    // For a subclass that patches bytes it has not drained yet.
    uint8_t* getWritableBuffer() { return myBuffer; }
    void discardBuffer() { myPosition = 0; }
    // Writes all bytes to a file, keeping the text of the first failure in
    // `error`: the English message for errno, else strerror, else "Write error".
    static void writeToFile(int fd, const uint8_t* bytes, int count, ZString& error);

private:
    static uint16_t swapBytes(uint16_t v) { return __builtin_bswap16(v); }
    static uint32_t swapBytes(uint32_t v) { return __builtin_bswap32(v); }
    static uint64_t swapBytes(uint64_t v) { return __builtin_bswap64(v); }
    // A multi-byte value is never split across two drains.
    template <typename T>
    void put(T value) {
        if (myPosition + (int)sizeof(T) >= myCapacity) drain();
        if (myLittleEndian != 1) value = swapBytes(value);
        memcpy(myBuffer + myPosition, &value, sizeof(T));
        myPosition += (int)sizeof(T);
    }
    // `count` values of type T from memory, each in the writer's order.
    template <typename T>
    void putAll(const void* values, int count) {
        for (int i = 0; i < count; i++) {
            T value;
            memcpy(&value, (const uint8_t*)values + sizeof(T) * i, sizeof(T));
            put(value);
        }
    }
    void drain();
    void writeBytes(const char* bytes, int count);

    bool myOid32;
    int32_t myCapacity;
    uint8_t* myBuffer;
    int32_t myPosition;
    int32_t myLittleEndian;
};
