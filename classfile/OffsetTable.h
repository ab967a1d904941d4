// Where the branch offsets of a method being rewritten stand: the branching
// instruction, the position of its stored offset, and the offset's width.
#pragma once

#include "foundation/Failure.h"
#include "foundation/ZVector.h"

class OffsetTable {
public:
    struct Element {
        int instructionIndex;
        int offsetIndex;
        bool isShort;  // 2-byte offset when true, 4-byte when false
    };

    void addOffsetToTable(int instructionIndex, int offsetIndex, bool isShort) {
        KZT_ASSERT(instructionIndex >= 0);
        KZT_ASSERT(offsetIndex >= 1);
        myElements.push(Element{instructionIndex, offsetIndex, isShort});
    }
    int getInstructionIndex(int i) const { return at(i).instructionIndex; }
    int getOffsetIndex(int i) const { return at(i).offsetIndex; }
    bool isShort(int i) const { return at(i).isShort; }
    int size() const { return myElements.getSize(); }
    // Forgets the entries and keeps the storage, for the next method.
    void clear() { myElements.clear(); }

private:
    const Element& at(int i) const {
        KZT_ASSERT(i >= 0 && i < myElements.getSize());
        return myElements[i];
    }

    // Elements by value: a method's branches cost no allocation each.
    ZVector<Element, 10> myElements;
};
