// Big-endian reads and writes at an index of a code array, with checks.
#pragma once

#include "foundation/Failure.h"

class ByteConversions {
public:
    static int readU1(const unsigned char* code, int index) {
        check(code, index, __LINE__);
        return code[index];
    }
    static int readS1(const unsigned char* code, int index) {
        check(code, index, __LINE__);
        return (signed char)code[index];
    }
    static int readU2(const unsigned char* code, int index) {
        check(code, index, __LINE__);
        return (code[index] << 8) | code[index + 1];
    }
    static int readS2(const unsigned char* code, int index) {
        check(code, index, __LINE__);
        return (short)((code[index] << 8) | code[index + 1]);
    }
    static int readS4(const unsigned char* code, int index) {
        check(code, index, __LINE__);
        return (int)(((unsigned)code[index] << 24) | ((unsigned)code[index + 1] << 16) | ((unsigned)code[index + 2] << 8) |
                     code[index + 3]);
    }
    static unsigned readU4(const unsigned char* code, int index) { return (unsigned)readS4(code, index); }

    static void writeU1(unsigned char* code, int index, int value) {
        check(code, index, __LINE__);
        code[index] = (unsigned char)value;
    }
    static void writeU2(unsigned char* code, int index, int value) {
        check(code, index, __LINE__);
        code[index] = (unsigned char)(value >> 8);
        code[index + 1] = (unsigned char)value;
    }
    static void writeS2(unsigned char* code, int index, int value) { writeU2(code, index, value); }
    static void writeS4(unsigned char* code, int index, int value) {
        check(code, index, __LINE__);
        code[index] = (unsigned char)(value >> 24);
        code[index + 1] = (unsigned char)(value >> 16);
        code[index + 2] = (unsigned char)(value >> 8);
        code[index + 3] = (unsigned char)value;
    }

private:
    static void check(const unsigned char* code, int index, int line) {
        if (code == nullptr) failFatal("assertion failed: value is NULL", "./ByteConversions.h", line);
        if (index < 0) failFatal("assertion failed", "./ByteConversions.h", line);
    }
};
