// "LineNumberTable": start pc and line, in table order.
#pragma once

#include "classfile/Attributes.h"

class LineNumberTableAttribute : public AttributeInfo {
public:
    struct LineNumber {
        int startPc;
        int lineNumber;
    };

    LineNumberTableAttribute(DataInput& in, int nameIndex, int length);
    void writeTo(DataOutput& out) override;

    int getCount() const { return myLines.getSize(); }
    const LineNumber& getLine(int i) const { return myLines[i]; }

    // Moves every entry through an old-to-new offset map of `mapLength`
    // entries. An entry at pc 0 stays there, so that code put in front of the
    // method counts as its first line.
    void shiftLineNumbers(const int* map, int mapLength);
    // The line of the last entry whose start is at most pc, walking in table
    // order and stopping at the first entry above pc; 0 when none.
    int getLineNumber(int pc) const;

private:
    ZVector<LineNumber, 10> myLines;
};
