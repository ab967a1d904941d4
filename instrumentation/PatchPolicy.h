// Where the method patcher inserts code: exit calls before returns, line
// calls before invocations, and the allocation calls around `new`, array
// creations and constructor calls. It watches the instructions that matter
// as the code editor scans a method, and reserves an insertion for each.
#pragma once

#include "classfile/CodeEditor.h"
#include "foundation/ZVector.h"
#include "instrumentation/PatchContext.h"

// What an insertion does, by the old instruction it belongs to.
enum PatchKind {
    KIND_EXIT = 1,             // before a return: exit code
    KIND_NEW_WITHOUT_DUP = 2,  // after `new`: dup and 3 nop
    KIND_NEW_GIVEN_UP = 3,     // after `new`: 4 nop
    KIND_NEW_ARRAY = 4,        // after an array creation: dup, allocation code
    KIND_INIT_AFTER_DUP = 5,   // after <init> of a `new; dup`: dup, allocation code
    KIND_INIT_AFTER_COPY = 6,  // after <init> of a `new` copied by injected code: nop, allocation code
    KIND_LINE = 7,             // before an invoke: line code
    KIND_NEW_WITH_SWAP = 8,    // after `new` followed by swap: dup_x1 and 3 nop
};

// One insertion of the patcher; the editor hands its index back as the tag.
struct PatchRecord {
    int kind;
    int oldOffset;
    int pseudoMethodId;
    int insertion;
};

// The insertion length of a kind, in a method with or without a switch.
int patchLength(int kind, bool withSwitch);

class PatchPolicy {
public:
    // Scratch storage kept from method to method: the hook rewrites one class at a time.
    struct Scratch {
        ZVector<PatchRecord, 10> records{64};
        ZVector<int, 10> pendingKinds{32};
        ZVector<int, 10> pendingIds{32};
    };

    PatchPolicy(ClassContext& c, Scratch& s, CodeEditor& editor, bool withTracing, bool withLines,
                bool withAllocations);

    // For the editor's scan.
    const bool* interest() const;
    void visit(int opcode, int pc, int next);

private:
    void insertBefore(int kind, int pc);
    void insertAfter(int kind, int pc, int id);
    void onNew(int pc);
    void onInvokeSpecial(int pc);
    void onDupX();

    ClassContext& c;
    Scratch& s;
    CodeEditor& myEditor;
    const unsigned char* myCode;
    int myLength;
    bool myTracing;
    bool myLines;
    bool myAllocations;
    // Where the instruction being visited ends.
    int myNext = 0;
};
