#include "foundation/AbstractWriter.h"

#include <cerrno>
#include <unistd.h>

#include "foundation/Failure.h"
#include "foundation/System.h"

AbstractWriter::AbstractWriter(int capacity, bool littleEndian, bool oid32)
    : myOid32(oid32), myCapacity(capacity), myBuffer(nullptr), myPosition(0), myLittleEndian(littleEndian ? 1 : 0) {
    // Room for the largest put after a drain.
    KZT_ASSERT(capacity > 8);
    myBuffer = new uint8_t[capacity];
}

AbstractWriter::~AbstractWriter() {
    delete[] myBuffer;
}

void AbstractWriter::drain() {
    flush();
    KZT_ASSERT(myPosition == 0);
}

void AbstractWriter::writeFloat(float value) {
    int32_t bits;
    memcpy(&bits, &value, 4);
    writeInt(bits);
}

void AbstractWriter::writeDouble(double value) {
    int64_t bits;
    memcpy(&bits, &value, 8);
    writeLong(bits);
}

void AbstractWriter::writeString(const char* text) {
    if (text == nullptr) {
        writeInt(-1);
        return;
    }
    writeBytes(text, (int)strlen(text));
}

void AbstractWriter::writeBytes(const char* bytes, int count) {
    writeInt(count);
    writeRaw(bytes, count);
}

void AbstractWriter::writeRaw(const void* bytes, int count) {
    const uint8_t* from = (const uint8_t*)bytes;
    while (count > 0) {
        if (myPosition == myCapacity) drain();
        int room = myCapacity - myPosition;
        int part = count < room ? count : room;
        memcpy(myBuffer + myPosition, from, part);
        myPosition += part;
        from += part;
        count -= part;
    }
}

static void unexpectedSignature(char signature) {
    ZString text("unexpected signature: ");
    text.appendLong(signature);
    failFatal(text.c_str(), __FILE__, __LINE__);
}

void AbstractWriter::writePrimitive(int64_t value, char signature) {
    switch (signature) {
        case 'B':
        case 'Z': writeByte((int)value); break;
        case 'C':
        case 'S': writeShort((int)value); break;
        case 'I':
        case 'F': writeInt((int)value); break;
        case 'J':
        case 'D': writeLong(value); break;
        default: unexpectedSignature(signature);
    }
}

void AbstractWriter::writePrimitives(const void* values, char signature, int count) {
    switch (signature) {
        case 'B':
        case 'Z': writeRaw(values, count); break;
        case 'C':
        case 'S': putAll<uint16_t>(values, count); break;
        case 'I':
        case 'F': putAll<uint32_t>(values, count); break;
        case 'J':
        case 'D': putAll<uint64_t>(values, count); break;
        default: unexpectedSignature(signature);
    }
}

int64_t AbstractWriter::jvalueAsLong(char signature, jvalue value) {
    switch (signature) {
        case 'B': return (int64_t)value.b;
        case 'C': return (int64_t)(uint16_t)value.c;
        case 'S': return (int64_t)value.s;
        case 'I': return (int64_t)value.i;
        case 'F': {
            int32_t bits;
            memcpy(&bits, &value.f, 4);
            return bits;
        }
        case 'J': return value.j;
        case 'D': {
            int64_t bits;
            memcpy(&bits, &value.d, 8);
            return bits;
        }
        case 'Z': return value.z == 1 ? 1 : 0;
        default: return 0;
    }
}

int AbstractWriter::getPrimitiveSize(char signature) {
    switch (signature) {
        case 'B':
        case 'Z': return 1;
        case 'C':
        case 'S': return 2;
        case 'I':
        case 'F': return 4;
        case 'J':
        case 'D': return 8;
        default: return -1;
    }
}

void AbstractWriter::writeToFile(int fd, const uint8_t* bytes, int count, ZString& error) {
    while (count > 0) {
        errno = 0;
        ssize_t written = write(fd, bytes, count);
        if (written > 0) {
            bytes += written;
            count -= (int)written;
            continue;
        }
        if (written < 0 && errno == EINTR) continue;
        if (error.isEmpty()) {
            int code = errno;
            ZString text = getEnglishErrorMessage(code);
            if (text.isEmpty() && code != 0) text = z_strerror(code);
            if (text.isEmpty()) text = "Write error";
            error = text;
        }
        return;
    }
}
