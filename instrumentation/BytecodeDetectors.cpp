#include "instrumentation/BytecodeDetectors.h"

#include "classfile/ByteConversions.h"
#include "classfile/OpCodes.h"

// The opcode at pc, or -1 past the end of the code.
static int opcodeAt(const unsigned char* code, int length, int pc) { return pc < length ? code[pc] : -1; }

int NewOpCodeDetector::getNewOpCodeType(const unsigned char* code, int length) {
    bool hasAllocation = false;
    bool obfuscated = false;
    for (int pc = 0; pc < length; pc += OpCodes::instructionLength(code, length, pc)) {
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
