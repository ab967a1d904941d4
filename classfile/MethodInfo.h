// Methods and fields of a class. Both keep a pointer to the pool of their
// class and never outlive it.
#pragma once

#include "classfile/Attributes.h"
#include "classfile/ConstantPool.h"
#include "classfile/MemberHeader.h"

class ClassPool;
class CodeAttribute;

class MethodInfo : public ArenaObject, public MemberHeader {
public:
    // With an arena, the attributes take their memory from it.
    MethodInfo(DataInput& in, ConstantPool* pool, ClassArena* arena = nullptr);
    // A bare method without attributes.
    MethodInfo(ConstantPool* pool, int accessFlags, int nameIndex, int descriptorIndex, ClassArena* arena = nullptr);
    ~MethodInfo();
    MethodInfo(const MethodInfo&) = delete;
    MethodInfo& operator=(const MethodInfo&) = delete;

    // A "Code" attribute is written with its stack map table encoded for the
    // moment of the write, so a method can be written any number of times.
    void writeTo(DataOutput& out);

    // The first "Code" attribute; null for native and abstract methods.
    CodeAttribute* getCodeAttribute() const;
    // Appends an empty body; the pool must hold the Utf8 "Code" already.
    CodeAttribute* createCodeAttribute();
    // Replaces the attributes with copies of `other`'s, which must belong to
    // the same class. The copied code keeps its stack map table raw.
    void copyAttributesFrom(MethodInfo* other);
    void parseStackMapTable(ClassPool* pool);

    ZVector<AttributeInfo*, 10>& getAttributes() { return myAttributes; }
    ConstantPool* getConstantPool() const { return myConstantPool; }

    bool equals(int nameIndex, int descriptorIndex) const {
        return myNameIndex == nameIndex && myDescriptorIndex == descriptorIndex;
    }
    const ZString& getName() const { return ConstantPoolInfo::getUtf8(myConstantPool, myNameIndex); }
    const ZString& getDescriptor() const { return ConstantPoolInfo::getUtf8(myConstantPool, myDescriptorIndex); }
    bool isPublic() const { return (myAccessFlags & 0x0001) != 0; }
    bool isPrivate() const { return (myAccessFlags & 0x0002) != 0; }
    bool isNative() const { return (myAccessFlags & 0x0100) != 0; }
    bool isSyntheticAndBridge() const { return (myAccessFlags & 0x1040) == 0x1040; }
    void makeNotNative() { myAccessFlags &= ~0x0100; }

    // Descriptor parts: the return descriptor ("V" for void), and each
    // parameter's field descriptor in order.
    bool isVoid() const;
    ZString getReturnType() const;
    void getParameterTypes(ZVectorSafe<ZString>& types) const;
    static void getParameterTypesBySignature(const ZString& descriptor, ZVectorSafe<ZString>& types);
    // An annotation of the method whose type descriptor matches the wildcard
    // pattern; an empty pattern always matches.
    bool hasMatchingAnnotation(const ZString& pattern) {
        return AnnotationsAttribute::hasMatchingAnnotation(pattern, myAttributes, myConstantPool);
    }
    // Appends the internal names of the classes in "Exceptions".
    void fillExceptions(ZVectorSafe<ZString>& names) const;

private:
    ZVector<AttributeInfo*, 10> myAttributes;
    ConstantPool* myConstantPool;
    ClassArena* myArena;
};

class FieldInfo : public ArenaObject, public MemberHeader {
public:
    FieldInfo(DataInput& in, ConstantPool* pool, ClassArena* arena = nullptr);
    ~FieldInfo() { AttributeInfo::deleteAll(myAttributes); }
    FieldInfo(const FieldInfo&) = delete;
    FieldInfo& operator=(const FieldInfo&) = delete;

    void writeTo(DataOutput& out);

    ZVector<AttributeInfo*, 10>& getAttributes() { return myAttributes; }

private:
    ZVector<AttributeInfo*, 10> myAttributes;
};
