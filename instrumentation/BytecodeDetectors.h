// Scanners that look through a method's code before it is rewritten: is there
// a switch, and how does the method create objects.
#pragma once

class SwitchDetector {
public:
    // True when an instruction of the code is tableswitch or lookupswitch.
    static bool containsSwitch(const unsigned char* code, int length);
};

class NewOpCodeDetector {
public:
    enum {
        NO_ALLOCATIONS = 0,
        ALLOCATIONS = 1,
        // `new; swap; ifne`: the shape a known obfuscator leaves.
        OBFUSCATED_ALLOCATIONS = 2,
        // `new; swap` in any other shape: allocations of the method go unrecorded.
        UNEXPECTED_PATTERN = 3,
    };

    static int getNewOpCodeType(const unsigned char* code, int length);
};

// Length of the instruction at pc for both scanners: `wide` by what it
// widens, switches by their tables. Fails with "Wrong instruction opcode
// found: " on a byte that is no opcode.
int scannedInstructionLength(const unsigned char* code, int length, int pc);
