#include "classfile/LocalVariableTableAttribute.h"

#include "foundation/Failure.h"

LocalVariableTableAttribute::LocalVariableTableAttribute(Kind kind, DataInput& in, ConstantPool* pool, int nameIndex,
                                                         int length)
    : AttributeInfo(kind, nameIndex, length), myConstantPool(pool) {
    int count = in.readUnsignedShort();
    in.peek(count * 10);
    myVariables.resize(count);
    for (int i = 0; i < count; i++) {
        LocalVariable& v = myVariables[i];
        v.myStartPc = in.readUnsignedShort();
        v.myLength = in.readUnsignedShort();
        v.myNameIndex = in.readUnsignedShort();
        v.myDescriptorIndex = in.readUnsignedShort();
        v.myIndex = in.readUnsignedShort();
    }
}

void LocalVariableTableAttribute::writeTo(DataOutput& out) {
    int count = myVariables.getSize();
    unsigned char* p = out.reserve(2 + 10 * count);
    DataOutput::putU2(p, count);
    p += 2;
    const LocalVariable* variables = myVariables.getElements();
    for (int i = 0; i < count; i++, p += 10) {
        const LocalVariable& v = variables[i];
        DataOutput::putU2(p, v.myStartPc);
        DataOutput::putU2(p + 2, v.myLength);
        DataOutput::putU2(p + 4, v.myNameIndex);
        DataOutput::putU2(p + 6, v.myDescriptorIndex);
        DataOutput::putU2(p + 8, v.myIndex);
    }
}

void LocalVariableTableAttribute::remap(const int* startMap, const int* endMap, int oldLength, int newLength) {
    for (int i = 0; i < myVariables.getSize(); i++) {
        LocalVariable& v = myVariables[i];
        int end = v.myStartPc + v.myLength;
        KZT_ASSERT(end <= oldLength);
        int newStart = v.myStartPc == 0 ? 0 : startMap[v.myStartPc];
        int newEnd = end == oldLength ? newLength : endMap[end];
        v.myStartPc = newStart;
        v.myLength = newEnd - newStart;
    }
}
