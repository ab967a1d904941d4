// "LocalVariableTable" and "LocalVariableTypeTable": the same records, the
// second with a signature where the first has a descriptor.
#pragma once

#include "classfile/Attributes.h"

class LocalVariable {
public:
    int getStartPc() const { return myStartPc; }
    void setStartPc(int pc) { myStartPc = pc; }
    int getLength() const { return myLength; }
    void setLength(int length) { myLength = length; }
    int getNameIndex() const { return myNameIndex; }
    int getDescriptorIndex() const { return myDescriptorIndex; }
    int getIndex() const { return myIndex; }
    const ZString& getName(const ConstantPool* pool) const { return ConstantPoolInfo::getUtf8(pool, myNameIndex); }

    int myStartPc;
    int myLength;
    int myNameIndex;
    int myDescriptorIndex;
    int myIndex;
};

class LocalVariableTableAttribute : public AttributeInfo {
public:
    LocalVariableTableAttribute(DataInput& in, ConstantPool* pool, int nameIndex, int length)
        : LocalVariableTableAttribute(LOCAL_VARIABLE_TABLE, in, pool, nameIndex, length) {}
    void writeTo(DataOutput& out) override;

    int getCount() const { return myVariables.getSize(); }
    LocalVariable& getVariable(int i) { return myVariables[i]; }
    const ConstantPool* getConstantPool() const { return myConstantPool; }

    // Moves the ranges through old-to-new offset maps: a start through
    // `startMap`, an end through `endMap` or to newLength when it was the old
    // code's end. A range that started at 0 keeps 0, so that it covers code
    // put in front of the method.
    void remap(const int* startMap, const int* endMap, int oldLength, int newLength);

protected:
    LocalVariableTableAttribute(Kind kind, DataInput& in, ConstantPool* pool, int nameIndex, int length);

private:
    ConstantPool* myConstantPool;
    ZVector<LocalVariable, 10> myVariables;
};

class LocalVariableTypeTableAttribute : public LocalVariableTableAttribute {
public:
    LocalVariableTypeTableAttribute(DataInput& in, ConstantPool* pool, int nameIndex, int length)
        : LocalVariableTableAttribute(LOCAL_VARIABLE_TYPE_TABLE, in, pool, nameIndex, length) {}
};
