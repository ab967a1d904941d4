// The code that the method patcher injects: the entry, exit, line and
// allocation calls to the Callback stubs. Each sequence is straight-line and
// has a fixed length, so that no frame is ever needed for it; in a method with
// a switch every length is a multiple of four, so that no switch padding moves.
#pragma once

#include "instrumentation/PatchContext.h"

const int EXIT_CODE_LENGTH = 10;
const int EXIT_CODE_LENGTH_SWITCH = 12;
const int ALLOCATION_CODE_LENGTH = 24;
const int NEW_START_LENGTH = 4;

int entryCodeLength(bool withCachedFrame, bool withSwitch);
int allocOnlyEntryCodeLength(bool withCachedFrame);

// Writes one sequence into code being built, at most as long as it may be.
class CodeWriter {
public:
    CodeWriter(unsigned char* code, int at) : myCode(code), myStart(at), myPos(at) {}
    void op(int opcode) { myCode[myPos++] = (unsigned char)opcode; }
    void opU2(int opcode, int value) {
        myCode[myPos] = (unsigned char)opcode;
        myCode[myPos + 1] = (unsigned char)(value >> 8);
        myCode[myPos + 2] = (unsigned char)value;
        myPos += 3;
    }
    // The 4-byte `wide` form, whatever the variable.
    void wide(int opcode, int var);
    void padTo(int length);
    int written() const { return myPos - myStart; }
    // Each sequence has exactly its length, or the layout would lie.
    void expectLength(int length) const;

private:
    unsigned char* myCode;
    int myStart;
    int myPos;
};

void insertEntryCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k, int length);
void insertAllocOnlyEntryCode(CodeWriter& w, const MethodConstants& k, int length);
void insertExitCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k);
void insertInvokeLineNumberCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k, int line);
// `leadingOpcode` keeps a copy of the new object for the call: dup, or nop
// where injected code made the copy already.
void insertAllocationCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k, int leadingOpcode,
                          int idConstant, int line, int counterConstant);
// Behind a `new`: the copy of the object that the constructor call will report.
void insertNewCodeStart(CodeWriter& w, int leadingOpcode);
