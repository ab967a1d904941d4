#include "classfile/CodeEditor.h"

#include "foundation/Failure.h"
#include "classfile/ByteConversions.h"
#include "classfile/OpCodes.h"

void CodeEditor::begin(CodeAttribute* code) {
    KZT_ASSERT_NOT_NULL(code);
    myCode = code;
    myOldLength = code->getCodeLength();
    myApplied = false;
    myInsertions.clear();
    myBytes.clear();
}

int CodeEditor::add(int pc, int place, const unsigned char* bytes, int length) {
    KZT_ASSERT_NOT_NULL(myCode);
    KZT_ASSERT(!myApplied);
    KZT_ASSERT(length >= 0);
    KZT_ASSERT(place == AT_START || place == AT_END || (pc >= 0 && pc < myOldLength));
    if (length == 0) return -1;
    KZT_ASSERT_NOT_NULL(bytes);
    int from = myBytes.getSize();
    myBytes.resize(from + length);
    memcpy(myBytes.getElements() + from, bytes, length);
    int id = myInsertions.getSize();
    myInsertions.push(Insertion{pc, place, from, length, id});
    return id;
}

int CodeEditor::insertAtStart(const unsigned char* bytes, int length) { return add(-1, AT_START, bytes, length); }

int CodeEditor::insertBefore(int pc, const unsigned char* bytes, int length) { return add(pc, BEFORE, bytes, length); }

int CodeEditor::insertAfter(int pc, const unsigned char* bytes, int length) { return add(pc, AFTER, bytes, length); }

int CodeEditor::insertAtEnd(const unsigned char* bytes, int length) { return add(myOldLength, AT_END, bytes, length); }

// Stable by (pc, place): insertions at one place keep the order of the calls.
// Callers mostly add in code order, so this is close to linear.
void CodeEditor::sortInsertions() {
    Insertion* items = myInsertions.getElements();
    for (int i = 1; i < myInsertions.getSize(); i++) {
        Insertion item = items[i];
        int j = i - 1;
        while (j >= 0 && (items[j].pc > item.pc || (items[j].pc == item.pc && items[j].place > item.place))) {
            items[j + 1] = items[j];
            j--;
        }
        items[j + 1] = item;
    }
}

// Gives every old offset its new place; returns the new code length.
int CodeEditor::layout() {
    const unsigned char* code = myCode->getCode();
    const Insertion* items = myInsertions.getElements();
    int count = myInsertions.getSize();
    myBlockMap.resize(myOldLength + 1);
    myInstructionMap.resize(myOldLength + 1);
    myInsertionOffsets.resize(count);
    int* blockMap = myBlockMap.getElements();
    int* instructionMap = myInstructionMap.getElements();
    int* insertionOffsets = myInsertionOffsets.getElements();
    int pos = 0;
    int r = 0;
    // Notes where insertion r begins and gives its length.
    auto settle = [&](int at) {
        insertionOffsets[items[r].id] = at;
        return items[r++].length;
    };
    while (r < count && items[r].place == AT_START) pos += settle(pos);
    for (int pc = 0; pc < myOldLength;) {
        int length = OpCodes::instructionLength(code, myOldLength, pc);
        KZT_ASSERT(r == count || items[r].pc >= pc);  // nothing inside the previous instruction
        blockMap[pc] = pos;
        while (r < count && items[r].pc == pc && items[r].place == BEFORE) pos += settle(pos);
        int newLength = length;
        int opcode = code[pc];
        if (opcode == OpCodes::TABLESWITCH || opcode == OpCodes::LOOKUPSWITCH) {
            newLength += OpCodes::switchPadding(pos) - OpCodes::switchPadding(pc);
        }
        instructionMap[pc] = pos;
        for (int k = 1; k < length; k++) {
            int inner = pos + (k < newLength ? k : newLength - 1);
            blockMap[pc + k] = inner;
            instructionMap[pc + k] = inner;
        }
        pos += newLength;
        while (r < count && items[r].pc == pc && items[r].place == AFTER) pos += settle(pos);
        pc += length;
    }
    blockMap[myOldLength] = pos;
    instructionMap[myOldLength] = pos;
    while (r < count && items[r].place == AT_END) pos += settle(pos);
    KZT_ASSERT(r == count);
    return pos;
}

bool CodeEditor::relocate(unsigned char* out, int at, int instructionPos, int target, bool isShort) {
    KZT_ASSERT(target >= 0 && target < myOldLength);
    int offset = myBlockMap[target] - instructionPos;
    if (isShort) {
        if (offset < -32768 || offset > 32767) return false;
        ByteConversions::writeS2(out, at, offset);
    } else {
        ByteConversions::writeS4(out, at, offset);
    }
    return true;
}

bool CodeEditor::emit(unsigned char* out, int newLength) {
    const unsigned char* code = myCode->getCode();
    const unsigned char* bytes = myBytes.getElements();
    const Insertion* items = myInsertions.getElements();
    int count = myInsertions.getSize();
    int w = 0;
    int r = 0;
    while (r < count && items[r].place == AT_START) {
        memcpy(out + w, bytes + items[r].from, items[r].length);
        w += items[r++].length;
    }
    for (int pc = 0; pc < myOldLength;) {
        int length = OpCodes::instructionLength(code, myOldLength, pc);
        while (r < count && items[r].pc == pc && items[r].place == BEFORE) {
            memcpy(out + w, bytes + items[r].from, items[r].length);
            w += items[r++].length;
        }
        int opcode = code[pc];
        if (OpCodes::isShortBranch(opcode)) {
            out[w] = (unsigned char)opcode;
            if (!relocate(out, w + 1, w, pc + ByteConversions::readS2(code, pc + 1), true)) return false;
            w += 3;
        } else if (OpCodes::isLongBranch(opcode)) {
            out[w] = (unsigned char)opcode;
            long long target = (long long)pc + ByteConversions::readS4(code, pc + 1);
            KZT_ASSERT(target >= 0 && target < myOldLength);
            relocate(out, w + 1, w, (int)target, false);
            w += 5;
        } else if (opcode == OpCodes::TABLESWITCH || opcode == OpCodes::LOOKUPSWITCH) {
            int instructionPos = w;
            out[w++] = (unsigned char)opcode;
            for (int p = OpCodes::switchPadding(instructionPos); p > 0; p--) out[w++] = 0;
            int in = pc + 1 + OpCodes::switchPadding(pc);
            int end = pc + length;
            long long target = (long long)pc + ByteConversions::readS4(code, in);
            KZT_ASSERT(target >= 0 && target < myOldLength);
            relocate(out, w, instructionPos, (int)target, false);
            w += 4;
            in += 4;
            if (opcode == OpCodes::TABLESWITCH) {
                memcpy(out + w, code + in, 8);  // low, high
                w += 8;
                in += 8;
                for (; in < end; in += 4, w += 4) {
                    target = (long long)pc + ByteConversions::readS4(code, in);
                    KZT_ASSERT(target >= 0 && target < myOldLength);
                    relocate(out, w, instructionPos, (int)target, false);
                }
            } else {
                memcpy(out + w, code + in, 4);  // npairs
                w += 4;
                in += 4;
                for (; in < end; in += 8, w += 8) {
                    memcpy(out + w, code + in, 4);  // match
                    target = (long long)pc + ByteConversions::readS4(code, in + 4);
                    KZT_ASSERT(target >= 0 && target < myOldLength);
                    relocate(out, w + 4, instructionPos, (int)target, false);
                }
            }
        } else {
            memcpy(out + w, code + pc, length);
            w += length;
        }
        while (r < count && items[r].pc == pc && items[r].place == AFTER) {
            memcpy(out + w, bytes + items[r].from, items[r].length);
            w += items[r++].length;
        }
        pc += length;
    }
    while (r < count && items[r].place == AT_END) {
        memcpy(out + w, bytes + items[r].from, items[r].length);
        w += items[r++].length;
    }
    KZT_ASSERT(w == newLength);
    return true;
}

bool CodeEditor::apply() {
    KZT_ASSERT_NOT_NULL(myCode);
    KZT_ASSERT(!myApplied);
    KZT_ASSERT(myCode->getCodeLength() == myOldLength);
    sortInsertions();
    int newLength = layout();
    if (newLength > 65535) return false;
    unsigned char* out = myCode->allocateCodeBuffer(newLength);
    bool fits;
    try {
        fits = emit(out, newLength);
    } catch (...) {
        myCode->freeCodeBuffer(out);
        throw;
    }
    if (!fits) {
        myCode->freeCodeBuffer(out);
        return false;
    }
    myCode->adoptCodeBuffer(out, newLength);
    myCode->remapOffsets(myBlockMap.getElements(), myInstructionMap.getElements(), myOldLength);
    // A range to the old end stops where the code inserted at the end begins.
    int appended = myBlockMap[myOldLength];
    ZVector<CodeAttribute::ExceptionTableElement*, 10>& table = myCode->getExceptionTable();
    for (int i = 0; i < table.getSize(); i++) {
        if (table[i]->endPc > appended) table[i]->endPc = appended;
    }
    myApplied = true;
    return true;
}
