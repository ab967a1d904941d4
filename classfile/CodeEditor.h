// Inserts straight-line code into a method and moves everything that holds
// an offset along with it: branches and switches (their padding recomputed),
// exception table, line and local variable tables, stack map frames and the
// offsets of `new` in Uninitialized items. Every rewriter of method code goes
// through here: the tracing and allocation patcher, the probe injector and
// the tests that edit code.
//
// Inserted code must leave stack and locals as it found them (new locals go
// through CodeAttribute::addLocalVariableToTable). It may branch within
// itself, since its bytes stay together as they are; the frames of such
// branch targets are the caller's, after the edit, at getInsertionOffset plus
// the target's offset in the inserted bytes.
//
// An edit runs in three steps. `scan` walks the code once: the editor notes
// every branch and switch, and shows the instructions a caller asked about
// to the caller's visitor, which may insert code as it goes. `prepare` lays
// the new code out and checks that it fits; a method that does not fit is
// left exactly as it was. `commit` writes the new code, asking a filler for
// the bytes of each insertion that was only reserved, and installs it with
// all tables moved. `apply` does the last two (and the scan when nobody
// did). One editor serves any number of methods; its buffers are kept, so a
// class costs no allocation per instruction.
#pragma once

#include "classfile/CodeAttribute.h"
#include "classfile/OffsetTable.h"
#include "classfile/OpCodes.h"
#include "foundation/ZVector.h"

class CodeEditor {
public:
    // Writes the bytes of a reserved insertion: exactly `length` of them.
    class Filler {
    public:
        virtual void fill(int tag, unsigned char* at, int length) = 0;

    protected:
        ~Filler() {}
    };

    CodeEditor() : myCode(nullptr), myOldLength(0), myState(IDLE), myQuietFor(nullptr), myNewLength(0) {}

    // Starts an edit of `code`, forgetting any earlier one.
    void begin(CodeAttribute* code);

    // Each insertion returns its number, for setLength and
    // getInsertionOffset; inserting nothing returns -1.
    // Code ahead of the whole method. A branch to offset 0 lands behind it, no
    // exception range covers it, and a line or variable starting at 0 does.
    int insertAtStart(const unsigned char* bytes, int length);
    // Code in front of the instruction at `pc`: branches, handlers, frames
    // and ranges that began at pc now begin with this code.
    int insertBefore(int pc, const unsigned char* bytes, int length);
    // Code right behind the instruction at `pc`, inside pc's ranges.
    int insertAfter(int pc, const unsigned char* bytes, int length);
    // Code behind the whole method, such as a handler: no exception range
    // covers it and no original instruction falls into it.
    int insertAtEnd(const unsigned char* bytes, int length);
    // The same places for `length` bytes that the filler writes at commit,
    // handed `tag`. Each returns the insertion's number for setLength, which
    // may change a reserved length until prepare. Insertions at one place
    // keep the order in which they were made.
    int reserveAtStart(int length, int tag) { return push(-1, AT_START, 0, length, tag); }
    int reserveBefore(int pc, int length, int tag) { return push(pc, BEFORE, checkedPc(pc), length, tag); }
    int reserveAfter(int pc, int length, int tag) { return reserve(pc, AFTER, length, tag); }
    // The same when the caller knows where the instruction ends (a visitor does).
    int reserveAfter(int pc, int next, int length, int tag);
    void setLength(int insertion, int length);
    bool hasInsertions() const { return !myInsertions.isEmpty(); }

    // Walks the code once, noting branches and switches. `visitor.interest()`
    // gives 256 flags; for each instruction whose opcode is flagged the
    // editor calls `visitor.visit(opcode, pc, next)`, `next` being the pc of
    // the instruction behind it. Insertions made during the scan must be at
    // the visited instruction.
    template <typename Visitor>
    void scan(Visitor& visitor);
    // After the scan: whether the method holds a switch.
    bool hasSwitch() const { return !mySwitches.isEmpty(); }

    // Lays out the new code. False when it would exceed 65535 bytes or a
    // 2-byte branch offset no longer fits; nothing has changed then.
    bool prepare();
    // Writes and installs the code that prepare laid out.
    void commit(Filler* filler);
    // prepare and commit; false as prepare.
    bool apply(Filler* filler = nullptr);

    // After prepare: where the code for old offset `pc` begins (inserted code in
    // front of it included), and where the instruction itself now stands.
    // The old code length maps to where code inserted at the end begins,
    // which is the new length when there is none.
    int getBlockOffset(int pc) const { return myBlockMap[pc]; }
    int getInstructionOffset(int pc) const;
    // After prepare: where the code of an insertion begins.
    int getInsertionOffset(int insertion) const { return myInsertionOffsets[insertion]; }
    int getNewLength() const { return myNewLength; }

private:
    enum Place { AT_START = 0, BEFORE = 1, AFTER = 2, AT_END = 3 };
    enum State { IDLE, OPEN, SCANNED, PREPARED };
    // Code goes between old instructions, at a position: the old offset
    // of the instruction behind it. At one position, code that belongs to the
    // instruction in front (after it, or at the start) comes first; then the
    // block of the instruction behind begins, with code in front of it.
    struct Insertion {
        int pc;
        int place;
        int position;
        int rank;  // 0: ahead of the position's block, 1: inside it
        int length;
        int from;  // first byte in myBytes, or -1 for a reserved insertion
        int tag;
        int id;    // the number it was given, which sorting does not change
        bool precedes(const Insertion& other) const {
            return position < other.position || (position == other.position && rank < other.rank);
        }
    };
    // A step of writing the new code: a run of old code, an insertion, or a
    // switch written anew with its padding.
    struct Piece {
        int kind;
        int from;    // old offset, or the insertion's index
        int length;  // old bytes
        int at;      // new offset
    };
    enum PieceKind { COPY, INSERT, SWITCH };
    // Where a branch offset lands and what it becomes.
    struct Relocation {
        int at;
        int value;
        bool isShort;
    };
    // The instruction lengths that the scan needs, and which opcodes are
    // plain (a fixed length and no branch) and of no interest to the visitor.
    struct QuietSteps {
        unsigned char length[256];
    };

    int reserve(int pc, int place, int length, int tag) { return push(pc, place, position(pc, place), length, tag); }
    int push(int pc, int place, int position, int length, int tag) {
        if ((myState != OPEN && myState != SCANNED) || length < 0) failFatal("assertion failed", __FILE__, __LINE__);
        int id = myInsertions.getSize();
        int rank = place == BEFORE || place == AT_END ? 1 : 0;
        return myInsertions.push(Insertion{pc, place, position, rank, length, -1, tag, id});
    }
    int checkedPc(int pc) const {
        if (pc < 0 || pc >= myOldLength) failFatal("assertion failed", __FILE__, __LINE__);
        return pc;
    }
    int position(int pc, int place) const;
    int add(int pc, int place, const unsigned char* bytes, int length);
    void startScan();
    template <bool Checking, typename Visitor>
    void scanLoop(Visitor& visitor);
    int stepOverSpecial(const unsigned char* code, int opcode, int pc);
    void checkInsertionsUpTo(int pc);
    const QuietSteps& quietSteps(const bool* interest);
    static void sortInsertions(ZVector<Insertion, 10>& insertions);
    int layout();
    bool relocateBranches();

    int beforeLengthAt(int pc) const;

    CodeAttribute* myCode;
    int myOldLength;
    State myState;
    ZVector<Insertion, 10> myInsertions;
    // The insertions made before the scan, sorted, while it checks them
    // against instruction starts.
    ZVector<Insertion, 10> mySorted;
    ZVector<unsigned char, 10> myBytes;
    int myCheckedInsertion;
    OffsetTable myBranches;
    ZVector<int, 10> mySwitches;
    const bool* myQuietFor;
    QuietSteps myQuiet;
    ZVector<Piece, 10> myPieces;
    ZVector<Relocation, 10> myRelocations;
    // Instructions with code in front of them, by pc, with that code's length.
    ZVector<int, 10> myBeforePcs;
    ZVector<int, 10> myBeforeLengths;
    ZVector<int, 10> myBlockMap;
    ZVector<int, 10> myInstructionMap;
    ZVector<int, 10> myInsertionOffsets;
    int myNewLength;
};

template <typename Visitor>
void CodeEditor::scan(Visitor& visitor) {
    startScan();
    if (myCheckedInsertion < mySorted.getSize()) scanLoop<true>(visitor);
    else scanLoop<false>(visitor);
    myState = SCANNED;
}

template <bool Checking, typename Visitor>
void CodeEditor::scanLoop(Visitor& visitor) {
    const unsigned char* const code = myCode->getCode();
    const int end = myOldLength;
    const bool* interest = visitor.interest();
    const unsigned char* quiet = quietSteps(interest).length;
    int pc = 0;
    while (pc < end) {
        int opcode = code[pc];
        if (Checking) checkInsertionsUpTo(pc);
        int n = quiet[opcode];
        if (n != 0) {
            pc += n;
            continue;
        }
        n = ourOpCodeLength[opcode];
        bool plain = n > 0 && !OpCodes::isShortBranch(opcode) && !OpCodes::isLongBranch(opcode);
        int next = plain ? pc + n : stepOverSpecial(code, opcode, pc);
        if (next > end) failFatal("assertion failed", __FILE__, __LINE__);
        if (interest[opcode]) visitor.visit(opcode, pc, next);
        pc = next;
    }
    if (pc != end) failFatal("assertion failed", __FILE__, __LINE__);
    if (Checking) checkInsertionsUpTo(end);
}
