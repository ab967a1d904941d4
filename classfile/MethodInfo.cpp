#include "classfile/MethodInfo.h"

#include "classfile/ClassPool.h"
#include "classfile/CodeAttribute.h"
#include "foundation/Failure.h"

// The attributes of a field or method that Attributes.cpp does not make: "Code".
static AttributeInfo* makeMemberAttribute(const ConstantUtf8Info* name, DataInput& in, ConstantPool* pool, int nameIndex,
                                          int length, ClassArena* arena) {
    if (name->equals("Code", 4)) return new (arena) CodeAttribute(in, pool, nameIndex, length, arena);
    return nullptr;
}

MethodInfo::MethodInfo(DataInput& in, ConstantPool* pool, ClassArena* arena) : myConstantPool(pool), myArena(arena) {
    myAccessFlags = in.readUnsignedShort();
    myNameIndex = in.readUnsignedShort();
    myDescriptorIndex = in.readUnsignedShort();
    AttributeInfo::readAll(in, pool, myAttributes, arena, makeMemberAttribute);
}

MethodInfo::MethodInfo(ConstantPool* pool, int accessFlags, int nameIndex, int descriptorIndex, ClassArena* arena)
    : MemberHeader(accessFlags, nameIndex, descriptorIndex), myConstantPool(pool), myArena(arena) {
    KZT_ASSERT(accessFlags >= 0);
}

MethodInfo::~MethodInfo() { AttributeInfo::deleteAll(myAttributes); }

void MethodInfo::writeTo(DataOutput& out) {
    out.writeUnsignedShort(myAccessFlags);
    out.writeUnsignedShort(myNameIndex);
    out.writeUnsignedShort(myDescriptorIndex);
    out.writeUnsignedShort(myAttributes.getSize());
    for (int i = 0; i < myAttributes.getSize(); i++) {
        AttributeInfo* a = myAttributes[i];
        if (a->getKind() != AttributeInfo::CODE) {
            a->write(out);
            continue;
        }
        // Frames are encoded as a last "StackMapTable" just for this write;
        // a raw table copied from another method (stack maps off) stays as is.
        CodeAttribute* code = static_cast<CodeAttribute*>(a);
        code->writeWithStackMapTable(out);
        out.notePoolReference(code->getHighestPoolReference());
    }
}

CodeAttribute* MethodInfo::getCodeAttribute() const {
    for (int i = 0; i < myAttributes.getSize(); i++) {
        if (myAttributes[i]->getKind() == AttributeInfo::CODE) return static_cast<CodeAttribute*>(myAttributes[i]);
    }
    return nullptr;
}

CodeAttribute* MethodInfo::createCodeAttribute() {
    int nameIndex = 0;
    for (int i = 1; i < myConstantPool->getSize() && nameIndex == 0; i++) {
        ConstantPoolInfo* entry = (*myConstantPool)[i];
        if (entry != nullptr && entry->getTag() == ConstantPoolInfo::UTF8 &&
            static_cast<ConstantUtf8Info*>(entry)->getValue().equals("Code")) {
            nameIndex = i;
        }
    }
    KZT_ASSERT(nameIndex > 0);
    CodeAttribute* code = new (myArena) CodeAttribute(myConstantPool, nameIndex, myArena);
    myAttributes.push(code);
    return code;
}

void MethodInfo::copyAttributesFrom(MethodInfo* other) {
    KZT_ASSERT_NOT_NULL(other);
    KZT_ASSERT(other->myConstantPool == myConstantPool);
    ZVector<unsigned char, 10> scratch(256);
    DataOutput out(scratch);
    other->writeTo(out);
    AttributeInfo::deleteAll(myAttributes);
    DataInput in(scratch);
    in.readUnsignedShort();
    in.readUnsignedShort();
    in.readUnsignedShort();
    AttributeInfo::readAll(in, myConstantPool, myAttributes, myArena, makeMemberAttribute);
}

void MethodInfo::parseStackMapTable(ClassPool* pool) {
    CodeAttribute* code = getCodeAttribute();
    if (code != nullptr) code->parseStackMapTable(pool, *this);
}

ZString MethodInfo::getReturnType() const {
    const ZString& descriptor = getDescriptor();
    int close = descriptor.lastIndexOfChar(')');
    KZT_ASSERT(close >= 0);
    return descriptor.substring(close + 1);
}

bool MethodInfo::isVoid() const { return getDescriptor().endsWith(")V"); }

void MethodInfo::getParameterTypes(ZVectorSafe<ZString>& types) const { getParameterTypesBySignature(getDescriptor(), types); }

void MethodInfo::getParameterTypesBySignature(const ZString& descriptor, ZVectorSafe<ZString>& types) {
    const char* chars = descriptor.c_str();
    int length = descriptor.getLength();
    KZT_ASSERT(length > 0 && chars[0] == '(');
    int at = 1;
    while (at < length && chars[at] != ')') {
        int end = VerificationType::skipFieldDescriptor(chars, length, at);
        types.push(ZString(chars + at, end - at));
        at = end;
    }
}

void MethodInfo::fillExceptions(ZVectorSafe<ZString>& names) const {
    for (int i = 0; i < myAttributes.getSize(); i++) {
        if (myAttributes[i]->getKind() == AttributeInfo::EXCEPTIONS) {
            static_cast<ExceptionsAttribute*>(myAttributes[i])->fillExceptions(names);
        }
    }
}

FieldInfo::FieldInfo(DataInput& in, ConstantPool* pool, ClassArena* arena) {
    myAccessFlags = in.readUnsignedShort();
    myNameIndex = in.readUnsignedShort();
    myDescriptorIndex = in.readUnsignedShort();
    AttributeInfo::readAll(in, pool, myAttributes, arena, makeMemberAttribute);
}

void FieldInfo::writeTo(DataOutput& out) {
    out.writeUnsignedShort(myAccessFlags);
    out.writeUnsignedShort(myNameIndex);
    out.writeUnsignedShort(myDescriptorIndex);
    AttributeInfo::writeAll(out, myAttributes);
}
