// Inserts straight-line code into a method and moves everything that holds
// an offset along with it: branches and switches (their padding recomputed),
// exception table, line and local variable tables, stack map frames and the
// offsets of `new` in Uninitialized items.
//
// Inserted code must leave stack and locals as it found them (new locals go
// through CodeAttribute::addLocalVariableToTable). It may branch within
// itself, since its bytes are copied as they are; the frames of such branch
// targets are the caller's, after apply, at getInsertionOffset plus the
// target's offset in the inserted bytes. One editor serves any number of
// methods; its buffers are kept, so a class costs no allocation per
// instruction.
#pragma once

#include "classfile/CodeAttribute.h"
#include "classfile/OffsetTable.h"
#include "foundation/ZVector.h"

class CodeEditor {
public:
    CodeEditor() : myCode(nullptr), myOldLength(0), myApplied(false) {}

    // Starts an edit of `code`, forgetting any earlier one.
    void begin(CodeAttribute* code);

    // Each insertion returns its number for getInsertionOffset; inserting
    // nothing returns -1.
    // Code ahead of the whole method. A branch to offset 0 lands behind it, no
    // exception range covers it, and a line or variable starting at 0 does.
    int insertAtStart(const unsigned char* bytes, int length);
    // Code in front of the instruction at `pc`: branches, handlers, frames
    // and ranges that began at pc now begin with this code.
    int insertBefore(int pc, const unsigned char* bytes, int length);
    // Code right behind the instruction at `pc`, inside pc's ranges.
    int insertAfter(int pc, const unsigned char* bytes, int length);
    // Code behind the whole method, e.g. a handler: no range covers it and
    // no original instruction reaches it.
    int insertAtEnd(const unsigned char* bytes, int length);
    bool hasInsertions() const { return !myInsertions.isEmpty(); }

    // Builds the new code and installs it with all tables moved. False when
    // the code would exceed 65535 bytes or a 2-byte branch offset no longer
    // fits; the method is then left exactly as it was.
    bool apply();

    // After apply: where the code for old offset `pc` begins (inserted code in
    // front of it included), and where the instruction itself now stands.
    // The old code length maps to where the code inserted at the end begins,
    // which is the new length when there is none.
    int getBlockOffset(int pc) const { return myBlockMap[pc]; }
    int getInstructionOffset(int pc) const { return myInstructionMap[pc]; }
    // After apply: where the code of insertion `id` begins.
    int getInsertionOffset(int id) const { return myInsertionOffsets[id]; }

private:
    enum Place { AT_START = 0, BEFORE = 1, AFTER = 2, AT_END = 3 };
    struct Insertion {
        int pc;
        int place;
        int from;  // first byte in myBytes
        int length;
        int id;
    };

    int add(int pc, int place, const unsigned char* bytes, int length);
    void sortInsertions();
    int layout();
    bool emit(unsigned char* out, int newLength);
    bool relocate(unsigned char* out, int at, int instructionPos, int target, bool isShort);

    CodeAttribute* myCode;
    int myOldLength;
    bool myApplied;
    ZVector<Insertion, 10> myInsertions;
    ZVector<unsigned char, 10> myBytes;
    ZVector<int, 10> myBlockMap;
    ZVector<int, 10> myInstructionMap;
    ZVector<int, 10> myInsertionOffsets;
};
