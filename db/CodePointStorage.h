// Code points: a method and a line in one signed 32-bit value.
//   plain  (not negative):           the method index, no line
//   packed (bits 31 and 30 set):      bits 0-18 method, bits 19-29 line
//   table  (bit 31 set, bit 30 clear): index of a "code_point" row
// Packing covers methods below 524288 and lines below 2048, so the table
// holds only the rare rest.
#pragma once

#include <cstdint>

#include "foundation/ZLock.h"

class CodePointStorage {
public:
    static constexpr int PACKED_MAX_METHOD = 0x7ffff;
    static constexpr int PACKED_MAX_LINE = 2047;

    static int getCodePoint(const LockHolder& lock, int method, int line);
    // The plain or packed form, or 0 when only a table row can hold the pair.
    // Needs no lock.
    static int tryEncodeWithoutTable(int method, int line) {
        if (line < 1) {
            if (method > 0) return method;
        } else if (method <= PACKED_MAX_METHOD && line <= PACKED_MAX_LINE && method >= 0) {
            return (int)(0xC0000000u | ((uint32_t)line << 19) | (uint32_t)method);
        }
        return 0;
    }
    static int getCodePointUnpacked(const LockHolder& lock, int method, int line);

    // Decoding; a table form reads its row, so the lock must be held for it.
    static int getMethod(int codePoint);
    static int getLine(int codePoint);

    static void resetForTests();
};
