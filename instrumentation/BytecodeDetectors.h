// A look through a method's code before it is rewritten: how does the method
// create objects.
#pragma once

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
