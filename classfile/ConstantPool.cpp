#include "classfile/ConstantPool.h"

#include "agent/Logger.h"

ConstantPoolInfo* ConstantPoolInfo::getEntry(const ConstantPool* pool, int index, int tag) {
    KZT_ASSERT_NOT_NULL(pool);
    ConstantPoolInfo* entry = (*pool)[index];
    KZT_ASSERT_NOT_NULL(entry);
    KZT_ASSERT(entry->myTag == tag);
    return entry;
}

const ZString& ConstantPoolInfo::getUtf8(const ConstantPool* pool, int index) {
    return static_cast<ConstantUtf8Info*>(getEntry(pool, index, UTF8))->getValue();
}

ConstantUtf8Info::ConstantUtf8Info(DataInput& in) : ConstantPoolInfo(UTF8) {
    myByteLength = in.readUnsignedShort();
    myValue = in.readString(myByteLength);
}

ConstantUtf8Info::ConstantUtf8Info(const ZString& value) : ConstantPoolInfo(UTF8), myValue(value), myByteLength(value.getLength()) {}

void ConstantUtf8Info::setValue(const ZString& value) {
    myValue = value;
    myByteLength = value.getLength();
}

void ConstantUtf8Info::writeTo(DataOutput& out) {
    KZT_ASSERT(myByteLength <= 0xffff);
    out.writeUnsignedByte(myTag);
    out.writeUnsignedShort(myByteLength);
    out.write((const unsigned char*)myValue.c_str(), myByteLength);
}

void ConstantIntInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.writeInt(myValue);
}

ConstantFloatInfo::ConstantFloatInfo(DataInput& in) : ConstantPoolInfo(FLOAT) { in.readFully(myBytes, 4); }

void ConstantFloatInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.write(myBytes, 4);
}

void ConstantLongInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.writeLong(myValue);
}

ConstantDoubleInfo::ConstantDoubleInfo(DataInput& in) : ConstantPoolInfo(DOUBLE) { in.readFully(myBytes, 8); }

void ConstantDoubleInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.write(myBytes, 8);
}

void ConstantClassInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.writeUnsignedShort(myNameIndex);
}

void ConstantStringInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.writeUnsignedShort(myStringIndex);
}

void ConstantRefInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.writeUnsignedShort(myClassIndex);
    out.writeUnsignedShort(myNameAndTypeIndex);
}

const ZString& ConstantRefInfo::getClassSignature(const ConstantPool* pool) const {
    return static_cast<ConstantClassInfo*>(getEntry(pool, myClassIndex, CLASS))->getName(pool);
}

const ZString& ConstantRefInfo::getMethodName(const ConstantPool* pool) const {
    return static_cast<ConstantNameAndTypeInfo*>(getEntry(pool, myNameAndTypeIndex, NAME_AND_TYPE))->getName(pool);
}

const ZString& ConstantRefInfo::getMethodSignature(const ConstantPool* pool) const {
    return static_cast<ConstantNameAndTypeInfo*>(getEntry(pool, myNameAndTypeIndex, NAME_AND_TYPE))->getDescriptor(pool);
}

void ConstantNameAndTypeInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.writeUnsignedShort(myNameIndex);
    out.writeUnsignedShort(myDescriptorIndex);
}

void ConstantMethodHandleInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.writeUnsignedByte(myReferenceKind);
    out.writeUnsignedShort(myReferenceIndex);
}

void ConstantMethodTypeInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.writeUnsignedShort(myDescriptorIndex);
}

void ConstantInvokeDynamicInfo::writeTo(DataOutput& out) {
    out.writeUnsignedByte(myTag);
    out.writeUnsignedShort(myBootstrapMethodIndex);
    out.writeUnsignedShort(myNameAndTypeIndex);
}

ConstantPoolInfo* ConstantPoolInfoReader::create(DataInput& in) {
    int tag = in.readUnsignedByte();
    switch (tag) {
    case ConstantPoolInfo::UTF8:
        return new ConstantUtf8Info(in);
    case ConstantPoolInfo::INTEGER:
        return new ConstantIntInfo(in.readInt());
    case ConstantPoolInfo::FLOAT:
        return new ConstantFloatInfo(in);
    case ConstantPoolInfo::LONG:
        return new ConstantLongInfo(in.readLong());
    case ConstantPoolInfo::DOUBLE:
        return new ConstantDoubleInfo(in);
    case ConstantPoolInfo::CLASS:
        return new ConstantClassInfo(in.readUnsignedShort());
    case ConstantPoolInfo::STRING:
        return new ConstantStringInfo(in.readUnsignedShort());
    case ConstantPoolInfo::FIELD_REF:
    case ConstantPoolInfo::METHOD_REF:
    case ConstantPoolInfo::INTERFACE_METHOD_REF: {
        int classIndex = in.readUnsignedShort();
        int nameAndType = in.readUnsignedShort();
        if (tag == ConstantPoolInfo::FIELD_REF) return new ConstantFieldRefInfo(classIndex, nameAndType);
        if (tag == ConstantPoolInfo::METHOD_REF) return new ConstantMethodRefInfo(classIndex, nameAndType);
        return new ConstantInterfaceMethodRefInfo(classIndex, nameAndType);
    }
    case ConstantPoolInfo::NAME_AND_TYPE: {
        int name = in.readUnsignedShort();
        return new ConstantNameAndTypeInfo(name, in.readUnsignedShort());
    }
    case ConstantPoolInfo::METHOD_HANDLE: {
        int kind = in.readUnsignedByte();
        return new ConstantMethodHandleInfo(kind, in.readUnsignedShort());
    }
    case ConstantPoolInfo::METHOD_TYPE:
        return new ConstantMethodTypeInfo(in.readUnsignedShort());
    case ConstantPoolInfo::INVOKE_DYNAMIC: {
        int bootstrap = in.readUnsignedShort();
        return new ConstantInvokeDynamicInfo(bootstrap, in.readUnsignedShort());
    }
    default: {
        ZString text("Unknown Constant Pool Info tag: ");
        text.appendLong(tag);
        Logger::message(text);
        return nullptr;
    }
    }
}
