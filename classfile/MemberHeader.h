// The head of a field or method as the class file gives it: access flags,
// and name and descriptor by pool index. Frames and code see a method
// through this alone.
#pragma once

class MemberHeader {
public:
    int getAccessFlags() const { return myAccessFlags; }
    int getNameIndex() const { return myNameIndex; }
    int getDescriptorIndex() const { return myDescriptorIndex; }
    bool isStatic() const { return (myAccessFlags & 0x0008) != 0; }

protected:
    MemberHeader() : myAccessFlags(0), myNameIndex(0), myDescriptorIndex(0) {}
    MemberHeader(int accessFlags, int nameIndex, int descriptorIndex)
        : myAccessFlags(accessFlags), myNameIndex(nameIndex), myDescriptorIndex(descriptorIndex) {}

    int myAccessFlags;
    int myNameIndex;
    int myDescriptorIndex;
};
