#include "instrumentation/BytecodeDetectors.h"

#include "services/Logger.h"
#include "classfile/ByteConversions.h"
#include "classfile/OpCodes.h"

static void wrongOpcode(int opcode) {
    ZString text("Wrong instruction opcode found: ");
    text.appendLong(opcode);
    Logger::error(text, __FILE__, __LINE__);
}

int scannedInstructionLength(const unsigned char* code, int length, int pc) {
    int opcode = code[pc];
    if (opcode == OpCodes::WIDE) return pc + 1 < length && code[pc + 1] == OpCodes::IINC ? 6 : 4;
    if (opcode == OpCodes::TABLESWITCH) {
        int operands = pc + 1 + OpCodes::switchPadding(pc);
        KZT_ASSERT(operands + 12 <= length);
        long long low = ByteConversions::readS4(code, operands + 4);
        long long high = ByteConversions::readS4(code, operands + 8);
        long long size = high < low ? 12 : 12 + 4 * (high - low + 1);
        KZT_ASSERT(operands + size <= length);
        return (int)(operands + size - pc);
    }
    if (opcode == OpCodes::LOOKUPSWITCH) {
        int operands = pc + 1 + OpCodes::switchPadding(pc);
        KZT_ASSERT(operands + 8 <= length);
        long long pairs = ByteConversions::readS4(code, operands + 4);
        KZT_ASSERT(pairs >= 0 && operands + 8 + 8 * pairs <= length);
        return (int)(operands + 8 + 8 * pairs - pc);
    }
    int result = ourOpCodeLength[opcode];
    if (result < 1) wrongOpcode(opcode);
    return result;
}

bool SwitchDetector::containsSwitch(const unsigned char* code, int length) {
    for (int pc = 0; pc < length;) {
        int opcode = code[pc];
        if (opcode == OpCodes::TABLESWITCH || opcode == OpCodes::LOOKUPSWITCH) return true;
        pc += scannedInstructionLength(code, length, pc);
    }
    return false;
}

// The opcode at pc, or -1 past the end of the code.
static int opcodeAt(const unsigned char* code, int length, int pc) { return pc < length ? code[pc] : -1; }

int NewOpCodeDetector::getNewOpCodeType(const unsigned char* code, int length) {
    bool hasAllocation = false;
    bool obfuscated = false;
    for (int pc = 0; pc < length; pc += scannedInstructionLength(code, length, pc)) {
        int opcode = code[pc];
        if (opcode == OpCodes::NEWARRAY || opcode == OpCodes::ANEWARRAY || opcode == OpCodes::MULTIANEWARRAY) {
            hasAllocation = true;
        } else if (opcode == OpCodes::NEW) {
            int next = opcodeAt(code, length, pc + 3);
            if (next == OpCodes::SWAP) {
                if (opcodeAt(code, length, pc + 4) != OpCodes::IFEQ + 1) return UNEXPECTED_PATTERN;  // ifne
                obfuscated = true;
                hasAllocation = true;
            } else if (next == OpCodes::DUP) {
                // `new; dup; pop` drops the object at once: nothing to record.
                if (opcodeAt(code, length, pc + 4) != OpCodes::POP) hasAllocation = true;
            } else {
                hasAllocation = true;
            }
        }
    }
    if (obfuscated) return OBFUSCATED_ALLOCATIONS;
    return hasAllocation ? ALLOCATIONS : NO_ALLOCATIONS;
}
