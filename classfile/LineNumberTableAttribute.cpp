#include "classfile/LineNumberTableAttribute.h"

#include "foundation/Failure.h"

LineNumberTableAttribute::LineNumberTableAttribute(DataInput& in, int nameIndex, int length)
    : AttributeInfo(LINE_NUMBER_TABLE, nameIndex, length) {
    int count = in.readUnsignedShort();
    in.peek(count * 4);
    myLines.resize(count);
    for (int i = 0; i < count; i++) {
        myLines[i].startPc = in.readUnsignedShort();
        myLines[i].lineNumber = in.readUnsignedShort();
    }
}

void LineNumberTableAttribute::writeTo(DataOutput& out) {
    int count = myLines.getSize();
    unsigned char* p = out.reserve(2 + 4 * count);
    DataOutput::putU2(p, count);
    const LineNumber* lines = myLines.getElements();
    for (int i = 0; i < count; i++, p += 4) {
        DataOutput::putU2(p + 2, lines[i].startPc);
        DataOutput::putU2(p + 4, lines[i].lineNumber);
    }
}

void LineNumberTableAttribute::shiftLineNumbers(const int* map, int mapLength) {
    KZT_ASSERT_NOT_NULL(map);
    for (int i = 0; i < myLines.getSize(); i++) {
        int pc = myLines[i].startPc;
        KZT_ASSERT(pc < mapLength);
        if (pc != 0) myLines[i].startPc = map[pc];
    }
}

int LineNumberTableAttribute::getLineNumber(int pc) const {
    int line = 0;
    for (int i = 0; i < myLines.getSize(); i++) {
        if (myLines[i].startPc > pc) break;
        line = myLines[i].lineNumber;
    }
    return line;
}
