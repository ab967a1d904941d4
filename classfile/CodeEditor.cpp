#include "classfile/CodeEditor.h"

#include <emmintrin.h>

#include "classfile/ByteConversions.h"
#include "foundation/Failure.h"

namespace {

// map[i] = i + delta for from <= i < to, four at a time: this runs over every
// byte of every rewritten method.
void fillShifted(int* map, int from, int to, int delta) {
    int i = from;
    __m128i value = _mm_setr_epi32(from + delta, from + delta + 1, from + delta + 2, from + delta + 3);
    const __m128i step = _mm_set1_epi32(4);
    for (; i + 4 <= to; i += 4) {
        _mm_storeu_si128((__m128i*)(map + i), value);
        value = _mm_add_epi32(value, step);
    }
    for (; i < to; i++) map[i] = i + delta;
}

// The visitor of a scan that nobody asked for: no opcode is of interest.
struct NoVisitor {
    const bool* interest() const {
        static const bool none[256] = {};
        return none;
    }
    void visit(int, int, int) {}
};

}  // namespace

void CodeEditor::begin(CodeAttribute* code) {
    KZT_ASSERT_NOT_NULL(code);
    myCode = code;
    myOldLength = code->getCodeLength();
    myState = OPEN;
    myInsertions.clear();
    myBytes.clear();
    myCheckedInsertion = 0;
    myBranches.clear();
    mySwitches.clear();
}

int CodeEditor::add(int pc, int place, const unsigned char* bytes, int length) {
    KZT_ASSERT(length >= 0);
    if (length == 0) return -1;
    KZT_ASSERT_NOT_NULL(bytes);
    int index = place == AT_END ? push(myOldLength, AT_END, myOldLength, length, 0) : reserve(pc, place, length, 0);
    Insertion& insertion = myInsertions.getElements()[index];
    insertion.from = myBytes.getSize();
    myBytes.resize(insertion.from + length);
    memcpy(myBytes.getElements() + insertion.from, bytes, length);
    return index;
}

int CodeEditor::position(int pc, int place) const {
    KZT_ASSERT_NOT_NULL(myCode);
    if (place == AT_START) return 0;
    KZT_ASSERT(pc >= 0 && pc < myOldLength);
    return place == BEFORE ? pc : pc + OpCodes::instructionLength(myCode->getCode(), myOldLength, pc);
}

int CodeEditor::reserveAfter(int pc, int next, int length, int tag) {
    KZT_ASSERT(pc >= 0 && pc < next && next <= myOldLength);
    return push(pc, AFTER, next, length, tag);
}

int CodeEditor::insertAtStart(const unsigned char* bytes, int length) { return add(-1, AT_START, bytes, length); }

int CodeEditor::insertBefore(int pc, const unsigned char* bytes, int length) { return add(pc, BEFORE, bytes, length); }

int CodeEditor::insertAfter(int pc, const unsigned char* bytes, int length) { return add(pc, AFTER, bytes, length); }

int CodeEditor::insertAtEnd(const unsigned char* bytes, int length) { return add(myOldLength, AT_END, bytes, length); }

void CodeEditor::setLength(int insertion, int length) {
    KZT_ASSERT(myState == OPEN || myState == SCANNED);
    KZT_ASSERT(length >= 0);
    Insertion& item = myInsertions[insertion];
    KZT_ASSERT(item.from < 0);
    item.length = length;
}

// ---- the scan ----

void CodeEditor::startScan() {
    KZT_ASSERT(myState == OPEN);
    myBranches.clear();
    mySwitches.clear();
    // What was inserted before the scan is checked against the instruction
    // starts it meets; insertions at the start need no check.
    mySorted.clear();
    for (int i = 0; i < myInsertions.getSize(); i++) mySorted.push(myInsertions[i]);
    sortInsertions(mySorted);
    myCheckedInsertion = 0;
    while (myCheckedInsertion < mySorted.getSize() && mySorted[myCheckedInsertion].place == AT_START)
        myCheckedInsertion++;
}

// Every insertion before the instruction at `pc` must stand at an instruction
// start that the scan has passed.
void CodeEditor::checkInsertionsUpTo(int pc) {
    while (myCheckedInsertion < mySorted.getSize() && mySorted[myCheckedInsertion].pc <= pc) {
        if (mySorted[myCheckedInsertion].pc < pc) failFatal("assertion failed", __FILE__, __LINE__);
        myCheckedInsertion++;
    }
}

const CodeEditor::QuietSteps& CodeEditor::quietSteps(const bool* interest) {
    if (myQuietFor == interest) return myQuiet;
    for (int opcode = 0; opcode < 256; opcode++) {
        int n = ourOpCodeLength[opcode];
        bool plain = n > 0 && !OpCodes::isShortBranch(opcode) && !OpCodes::isLongBranch(opcode);
        myQuiet.length[opcode] = plain && !interest[opcode] ? (unsigned char)n : 0;
    }
    myQuietFor = interest;
    return myQuiet;
}

// An instruction that is not plain: notes its branch offsets, returns the pc
// behind it.
int CodeEditor::stepOverSpecial(const unsigned char* code, int opcode, int pc) {
    if (OpCodes::isShortBranch(opcode)) {
        KZT_ASSERT(pc + 3 <= myOldLength);
        myBranches.addOffsetToTable(pc, pc + 1, true);
        return pc + 3;
    }
    if (opcode == OpCodes::TABLESWITCH || opcode == OpCodes::LOOKUPSWITCH) {
        int next = pc + OpCodes::instructionLength(code, myOldLength, pc);
        int d = pc + 1 + OpCodes::switchPadding(pc);
        mySwitches.push(pc);
        myBranches.addOffsetToTable(pc, d, false);
        if (opcode == OpCodes::TABLESWITCH) {
            for (int at = d + 12; at < next; at += 4) myBranches.addOffsetToTable(pc, at, false);
        } else {
            for (int at = d + 12; at < next; at += 8) myBranches.addOffsetToTable(pc, at, false);
        }
        return next;
    }
    if (OpCodes::isLongBranch(opcode)) {
        KZT_ASSERT(pc + 5 <= myOldLength);
        myBranches.addOffsetToTable(pc, pc + 1, false);
        return pc + 5;
    }
    // `wide`, and anything that is no opcode (which fails).
    return pc + OpCodes::instructionLength(code, myOldLength, pc);
}

// ---- layout ----

// Stable by position and rank: insertions at one place keep the order of the
// calls. Scans insert in code order, so there is mostly nothing to move.
void CodeEditor::sortInsertions(ZVector<Insertion, 10>& insertions) {
    Insertion* items = insertions.getElements();
    int count = insertions.getSize();
    for (int i = 1; i < count; i++) {
        if (!items[i].precedes(items[i - 1])) continue;
        Insertion item = items[i];
        int j = i - 1;
        while (j >= 0 && item.precedes(items[j])) {
            items[j + 1] = items[j];
            j--;
        }
        items[j + 1] = item;
    }
}

// Gives every old offset its new place and lists the pieces of the new code;
// returns the new code length.
int CodeEditor::layout() {
    // Numbers of insertions are void from here on.
    sortInsertions(myInsertions);
    const Insertion* items = myInsertions.getElements();
    const int count = myInsertions.getSize();
    const int* switches = mySwitches.getElements();
    const int switchCount = mySwitches.getSize();
    // The map only grows, so that no method pays for clearing it.
    if (myBlockMap.getSize() < myOldLength + 1) myBlockMap.resize(myOldLength + 1);
    int* map = myBlockMap.getElements();
    myPieces.clear();
    myBeforePcs.clear();
    myBeforeLengths.clear();
    if (myInsertionOffsets.getSize() < count) myInsertionOffsets.resize(count);
    int* offsets = myInsertionOffsets.getElements();

    int delta = 0;
    int mapped = 0;  // old offsets below it have their new place
    int copied = 0;  // old bytes below it have their piece
    int r = 0;
    int s = 0;
    while (r < count || s < switchCount) {
        int p = r < count ? items[r].position : myOldLength;
        bool isSwitch = s < switchCount && switches[s] <= p;
        if (isSwitch) p = switches[s++];
        if (p < mapped) failFatal("assertion failed", __FILE__, __LINE__);
        if (p > copied) myPieces.push(Piece{COPY, copied, p - copied, copied + delta});
        fillShifted(map, mapped, p, delta);
        copied = p;
        // Code that belongs to the instruction in front, or to the start.
        for (; r < count && items[r].position == p && items[r].rank == 0; r++) {
            myPieces.push(Piece{INSERT, r, 0, p + delta});
            offsets[items[r].id] = p + delta;
            delta += items[r].length;
        }
        map[p] = p + delta;
        mapped = p + 1;
        int before = 0;
        for (; r < count && items[r].position == p; r++) {
            myPieces.push(Piece{INSERT, r, 0, p + delta + before});
            offsets[items[r].id] = p + delta + before;
            before += items[r].length;
        }
        if (before > 0) {
            // Code at the end is in front of no instruction.
            if (p < myOldLength) {
                myBeforePcs.push(p);
                myBeforeLengths.push(before);
            }
            delta += before;
        }
        if (isSwitch) {
            int length = OpCodes::instructionLength(myCode->getCode(), myOldLength, p);
            myPieces.push(Piece{SWITCH, p, length, p + delta});
            delta += OpCodes::switchPadding(p + delta) - OpCodes::switchPadding(p);
            fillShifted(map, p + 1, p + length, delta);
            mapped = copied = p + length;
        }
    }
    if (myOldLength > copied) myPieces.push(Piece{COPY, copied, myOldLength - copied, copied + delta});
    fillShifted(map, mapped, myOldLength, delta);
    if (mapped <= myOldLength) map[myOldLength] = myOldLength + delta;
    return myOldLength + delta;
}

int CodeEditor::beforeLengthAt(int pc) const {
    int low = 0;
    int high = myBeforePcs.getSize() - 1;
    while (low <= high) {
        int middle = (low + high) / 2;
        int at = myBeforePcs[middle];
        if (at == pc) return myBeforeLengths[middle];
        if (at < pc) low = middle + 1;
        else high = middle - 1;
    }
    return 0;
}

int CodeEditor::getInstructionOffset(int pc) const {
    int offset = myBlockMap[pc];
    return pc < myOldLength ? offset + beforeLengthAt(pc) : offset;
}

// Every branch offset anew; false when a 2-byte one no longer fits.
bool CodeEditor::relocateBranches() {
    const unsigned char* code = myCode->getCode();
    const int* map = myBlockMap.getElements();
    myRelocations.clear();
    int before = 0;  // index into myBeforePcs, walked along with the branches
    for (int i = 0; i < myBranches.size(); i++) {
        int instruction = myBranches.getInstructionIndex(i);
        int at = myBranches.getOffsetIndex(i);
        bool isShort = myBranches.isShort(i);
        long long target = (long long)instruction + (isShort ? ByteConversions::readS2(code, at) : ByteConversions::readS4(code, at));
        KZT_ASSERT(target >= 0 && target < myOldLength);
        while (before < myBeforePcs.getSize() && myBeforePcs[before] < instruction) before++;
        int moved = map[instruction];
        if (before < myBeforePcs.getSize() && myBeforePcs[before] == instruction) moved += myBeforeLengths[before];
        int newAt = moved + (at - instruction);
        if (code[instruction] == OpCodes::TABLESWITCH || code[instruction] == OpCodes::LOOKUPSWITCH) {
            newAt += OpCodes::switchPadding(moved) - OpCodes::switchPadding(instruction);
        }
        int value = map[target] - moved;
        if (isShort && (value < -32768 || value > 32767)) return false;
        myRelocations.push(Relocation{newAt, value, isShort});
    }
    return true;
}

bool CodeEditor::prepare() {
    KZT_ASSERT_NOT_NULL(myCode);
    KZT_ASSERT(myCode->getCodeLength() == myOldLength);
    if (myState == OPEN) {
        NoVisitor none;
        scan(none);
    }
    KZT_ASSERT(myState == SCANNED);
    myNewLength = layout();
    if (myNewLength > 65535 || !relocateBranches()) return false;
    myState = PREPARED;
    return true;
}

void CodeEditor::commit(Filler* filler) {
    KZT_ASSERT(myState == PREPARED);
    const unsigned char* code = myCode->getCode();
    const unsigned char* bytes = myBytes.getElements();
    unsigned char* out = myCode->allocateCodeBuffer(myNewLength);
    try {
        for (const Piece& piece : myPieces) {
            if (piece.kind == COPY) {
                memcpy(out + piece.at, code + piece.from, piece.length);
            } else if (piece.kind == INSERT) {
                const Insertion& insertion = myInsertions.getElements()[piece.from];
                if (insertion.length == 0) continue;
                if (insertion.from >= 0) {
                    memcpy(out + piece.at, bytes + insertion.from, insertion.length);
                } else {
                    KZT_ASSERT_NOT_NULL(filler);
                    filler->fill(insertion.tag, out + piece.at, insertion.length);
                }
            } else {
                // Opcode, the padding of its new place, then the operands
                // (offsets as they were; the relocations follow).
                int oldOperands = piece.from + 1 + OpCodes::switchPadding(piece.from);
                int padding = OpCodes::switchPadding(piece.at);
                out[piece.at] = code[piece.from];
                memset(out + piece.at + 1, 0, padding);
                memcpy(out + piece.at + 1 + padding, code + oldOperands, piece.from + piece.length - oldOperands);
            }
        }
        for (const Relocation& relocation : myRelocations) {
            if (relocation.isShort) ByteConversions::writeS2(out, relocation.at, relocation.value);
            else ByteConversions::writeS4(out, relocation.at, relocation.value);
        }
    } catch (...) {
        myCode->freeCodeBuffer(out);
        throw;
    }
    // Uninitialized items name their `new`: only code in front of a `new`
    // sets its instruction apart from its block.
    const int* instructionMap = myBlockMap.getElements();
    for (int i = 0; i < myBeforePcs.getSize(); i++) {
        if (code[myBeforePcs[i]] != OpCodes::NEW) continue;
        if (instructionMap == myBlockMap.getElements()) {
            myInstructionMap.resize(myOldLength + 1);
            memcpy(myInstructionMap.getElements(), myBlockMap.getElements(), sizeof(int) * (myOldLength + 1));
            instructionMap = myInstructionMap.getElements();
        }
        myInstructionMap[myBeforePcs[i]] += myBeforeLengths[i];
    }
    myCode->adoptCodeBuffer(out, myNewLength);
    myCode->remapOffsets(myBlockMap.getElements(), instructionMap, myOldLength);
    // A range to the old end stops where code inserted at the end begins.
    int appended = myBlockMap[myOldLength];
    ZVector<CodeAttribute::ExceptionTableElement*, 10>& table = myCode->getExceptionTable();
    for (int i = 0; i < table.getSize(); i++) {
        if (table[i]->endPc > appended) table[i]->endPc = appended;
    }
    myState = IDLE;
}

bool CodeEditor::apply(Filler* filler) {
    if (!prepare()) return false;
    commit(filler);
    return true;
}
