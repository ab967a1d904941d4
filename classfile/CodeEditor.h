// Inserts straight-line code into a method and moves everything that holds
// an offset along with it: branches and switches (their padding recomputed),
// exception table, line and local variable tables, stack map frames and the
// offsets of `new` in Uninitialized items.
//
// Inserted code must not branch and must leave stack and locals as it found
// them (new locals go through CodeAttribute::addLocalVariableToTable), so it
// needs no frames of its own. One editor serves any number of methods; its
// buffers are kept, so a class costs no allocation per instruction.
#pragma once

#include "classfile/CodeAttribute.h"
#include "classfile/OffsetTable.h"
#include "foundation/ZVector.h"

class CodeEditor {
public:
    CodeEditor() : myCode(nullptr), myOldLength(0), myApplied(false) {}

    // Starts an edit of `code`, forgetting any earlier one.
    void begin(CodeAttribute* code);

    // Code ahead of the whole method. A branch to offset 0 lands behind it, no
    // exception range covers it, and a line or variable starting at 0 does.
    void insertAtStart(const unsigned char* bytes, int length);
    // Code in front of the instruction at `pc`: branches, handlers, frames
    // and ranges that began at pc now begin with this code.
    void insertBefore(int pc, const unsigned char* bytes, int length);
    // Code right behind the instruction at `pc`, inside pc's ranges.
    void insertAfter(int pc, const unsigned char* bytes, int length);
    bool hasInsertions() const { return !myInsertions.isEmpty(); }

    // Builds the new code and installs it with all tables moved. False when
    // the code would exceed 65535 bytes or a 2-byte branch offset no longer
    // fits; the method is then left exactly as it was.
    bool apply();

    // After apply: where the code for old offset `pc` begins (inserted code in
    // front of it included), and where the instruction itself now stands.
    // The old code length maps to the new one.
    int getBlockOffset(int pc) const { return myBlockMap[pc]; }
    int getInstructionOffset(int pc) const { return myInstructionMap[pc]; }

private:
    enum Place { AT_START = 0, BEFORE = 1, AFTER = 2 };
    struct Insertion {
        int pc;
        int place;
        int from;  // first byte in myBytes
        int length;
    };

    void add(int pc, int place, const unsigned char* bytes, int length);
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
};
