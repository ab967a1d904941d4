#include "instrumentation/PatchSequences.h"

#include "classfile/OpCodes.h"
#include "foundation/Failure.h"

int entryCodeLength(bool withCachedFrame, bool withSwitch) {
    if (withSwitch) return withCachedFrame ? 20 : 16;
    return withCachedFrame ? 18 : 13;
}

int allocOnlyEntryCodeLength(bool withCachedFrame) { return withCachedFrame ? 8 : 0; }

void CodeWriter::wide(int opcode, int var) {
    myCode[myPos] = (unsigned char)OpCodes::WIDE;
    myCode[myPos + 1] = (unsigned char)opcode;
    myCode[myPos + 2] = (unsigned char)(var >> 8);
    myCode[myPos + 3] = (unsigned char)var;
    myPos += 4;
}

void CodeWriter::padTo(int length) {
    while (written() < length) op(OpCodes::NOP);
}

void CodeWriter::expectLength(int length) const { KZT_ASSERT(written() == length); }

void insertEntryCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k, int length) {
    if (k.cachedFrameVar >= 0) {
        w.op(OpCodes::ICONST_M1);
        w.wide(OpCodes::ISTORE, k.cachedFrameVar);
    }
    w.opU2(OpCodes::LDC_W, k.methodIdConstant);
    w.opU2(OpCodes::LDC2_W, k.callCounterConstant);
    w.opU2(OpCodes::INVOKESTATIC, c.entryRef);
    w.wide(OpCodes::LSTORE, k.entryResultVar);
    w.padTo(length);
    w.expectLength(length);
}

void insertAllocOnlyEntryCode(CodeWriter& w, const MethodConstants& k, int length) {
    if (k.cachedFrameVar >= 0) {
        w.op(OpCodes::ICONST_M1);
        w.wide(OpCodes::ISTORE, k.cachedFrameVar);
        w.padTo(length);
    }
    w.expectLength(length);
}

void insertExitCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k) {
    w.opU2(OpCodes::LDC_W, k.methodIdConstant);
    w.wide(OpCodes::LLOAD, k.entryResultVar);
    w.opU2(OpCodes::INVOKESTATIC, c.exitRef);
    w.padTo(k.withSwitch ? EXIT_CODE_LENGTH_SWITCH : EXIT_CODE_LENGTH);
}

// A line above 32767 goes through sipush as a negative short, as it always has.
void insertInvokeLineNumberCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k, int line) {
    w.opU2(OpCodes::SIPUSH, line & 0xffff);
    w.wide(OpCodes::LLOAD, k.entryResultVar);
    w.opU2(OpCodes::INVOKESTATIC, c.lineRef);
    w.padTo(k.withSwitch ? EXIT_CODE_LENGTH_SWITCH : EXIT_CODE_LENGTH);
}

void insertAllocationCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k, int leadingOpcode,
                          int idConstant, int line, int counterConstant) {
    w.op(leadingOpcode);
    w.wide(OpCodes::ILOAD, k.cachedFrameVar);
    w.opU2(OpCodes::LDC_W, idConstant);
    w.opU2(OpCodes::SIPUSH, line & 0xffff);
    w.opU2(OpCodes::LDC2_W, counterConstant);
    w.opU2(OpCodes::INVOKESTATIC, c.allocRef);
    w.wide(OpCodes::ISTORE, k.cachedFrameVar);
    w.padTo(ALLOCATION_CODE_LENGTH);
}

void insertNewCodeStart(CodeWriter& w, int leadingOpcode) {
    w.op(leadingOpcode);
    w.padTo(NEW_START_LENGTH);
}
