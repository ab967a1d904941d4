#include "classfile/ConstantPool.h"

#include "foundation/Failure.h"

ConstantPoolInfo* ConstantPoolInfo::getEntry(const ConstantPool* pool, int index, int tag) {
    KZT_ASSERT_NOT_NULL(pool);
    ConstantPoolInfo* entry = (*pool)[index];
    KZT_ASSERT_NOT_NULL(entry);
    KZT_ASSERT(entry->myTag == tag);
    return entry;
}

ConstantUtf8Info* ConstantPoolInfo::getUtf8Entry(const ConstantPool* pool, int index) {
    return static_cast<ConstantUtf8Info*>(getEntry(pool, index, UTF8));
}

const ZString& ConstantPoolInfo::getUtf8(const ConstantPool* pool, int index) { return getUtf8Entry(pool, index)->getValue(); }

ConstantUtf8Info::ConstantUtf8Info(DataInput& in, ClassArena* arena)
    : ConstantPoolInfo(UTF8), myChars(nullptr), myByteLength(0), myValue(nullptr), myLog(nullptr),
      myOwnsChars(arena == nullptr) {
    int length = in.readUnsignedShort();
    myByteLength = length;
    if (arena != nullptr) {
        myChars = (const char*)in.peek(length);
        in.skip(length);
        return;
    }
    in.peek(length);
    char* chars = new char[length + 1];
    in.readFully((unsigned char*)chars, length);
    chars[length] = 0;
    myChars = chars;
}

ConstantUtf8Info::ConstantUtf8Info(const char* chars, int length, ClassArena* arena)
    : ConstantPoolInfo(UTF8), myChars(nullptr), myByteLength(length), myValue(nullptr), myLog(nullptr),
      myOwnsChars(false) {
    char* copy = (char*)arena->allocate(length + 1);
    memcpy(copy, chars, length);
    copy[length] = 0;
    myChars = copy;
}

ConstantUtf8Info::~ConstantUtf8Info() {
    if (myOwnsChars) delete[] myChars;
    delete myValue;
}

const ZString& ConstantUtf8Info::getValue() const {
    if (myValue == nullptr) {
        myValue = new ZString(myChars, myByteLength);
        if (myLog != nullptr) myLog->owners.push(const_cast<ConstantUtf8Info*>(this));
    }
    return *myValue;
}

void ConstantUtf8Info::setValue(const ZString& value) {
    if (myLog != nullptr) myLog->edits++;
    if (myValue == nullptr) {
        myValue = new ZString(value);
        if (myLog != nullptr) myLog->owners.push(this);
    } else {
        *myValue = value;
    }
    if (myOwnsChars) delete[] myChars;
    myOwnsChars = false;
    myChars = myValue->c_str();
    myByteLength = value.getLength();
}

void ConstantUtf8Info::writeTo(DataOutput& out) {
    KZT_ASSERT(myByteLength <= 0xffff);
    out.writeUnsignedByte(myTag);
    out.writeUnsignedShort(myByteLength);
    out.write((const unsigned char*)myChars, myByteLength);
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

ConstantPoolInfo* ConstantPoolInfoReader::create(DataInput& in, ClassArena* arena) {
    int tag = in.readUnsignedByte();
    switch (tag) {
    case ConstantPoolInfo::UTF8:
        return ConstantPoolInfo::make<ConstantUtf8Info>(arena, in, arena);
    case ConstantPoolInfo::INTEGER:
        return ConstantPoolInfo::make<ConstantIntInfo>(arena, in.readInt());
    case ConstantPoolInfo::FLOAT:
        return ConstantPoolInfo::make<ConstantFloatInfo>(arena, in);
    case ConstantPoolInfo::LONG:
        return ConstantPoolInfo::make<ConstantLongInfo>(arena, in.readLong());
    case ConstantPoolInfo::DOUBLE:
        return ConstantPoolInfo::make<ConstantDoubleInfo>(arena, in);
    case ConstantPoolInfo::CLASS:
        return ConstantPoolInfo::make<ConstantClassInfo>(arena, in.readUnsignedShort());
    case ConstantPoolInfo::STRING:
        return ConstantPoolInfo::make<ConstantStringInfo>(arena, in.readUnsignedShort());
    case ConstantPoolInfo::FIELD_REF:
    case ConstantPoolInfo::METHOD_REF:
    case ConstantPoolInfo::INTERFACE_METHOD_REF: {
        int classIndex = in.readUnsignedShort();
        int nameAndType = in.readUnsignedShort();
        if (tag == ConstantPoolInfo::FIELD_REF) return ConstantPoolInfo::make<ConstantFieldRefInfo>(arena, classIndex, nameAndType);
        if (tag == ConstantPoolInfo::METHOD_REF) return ConstantPoolInfo::make<ConstantMethodRefInfo>(arena, classIndex, nameAndType);
        return ConstantPoolInfo::make<ConstantInterfaceMethodRefInfo>(arena, classIndex, nameAndType);
    }
    case ConstantPoolInfo::NAME_AND_TYPE: {
        int name = in.readUnsignedShort();
        return ConstantPoolInfo::make<ConstantNameAndTypeInfo>(arena, name, in.readUnsignedShort());
    }
    case ConstantPoolInfo::METHOD_HANDLE: {
        int kind = in.readUnsignedByte();
        return ConstantPoolInfo::make<ConstantMethodHandleInfo>(arena, kind, in.readUnsignedShort());
    }
    case ConstantPoolInfo::METHOD_TYPE:
        return ConstantPoolInfo::make<ConstantMethodTypeInfo>(arena, in.readUnsignedShort());
    case ConstantPoolInfo::INVOKE_DYNAMIC: {
        int bootstrap = in.readUnsignedShort();
        return ConstantPoolInfo::make<ConstantInvokeDynamicInfo>(arena, bootstrap, in.readUnsignedShort());
    }
    default: {
        ZString text("Unknown Constant Pool Info tag: ");
        text.appendLong(tag);
        reportMessage(text.c_str());
        return nullptr;
    }
    }
}
