// Constant pool entries. Slot 0 of a pool is null, and so is the slot after
// a Long or Double. Entries are never moved or renumbered once in a pool.
#pragma once

#include <new>

#include "classfile/ClassArena.h"
#include "classfile/DataInput.h"
#include "classfile/DataOutput.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class ConstantPoolInfo;
typedef ZVector<ConstantPoolInfo*, 10> ConstantPool;

class ConstantPoolInfo {
public:
    enum {
        UTF8 = 1, INTEGER = 3, FLOAT = 4, LONG = 5, DOUBLE = 6, CLASS = 7, STRING = 8,
        FIELD_REF = 9, METHOD_REF = 10, INTERFACE_METHOD_REF = 11, NAME_AND_TYPE = 12,
        METHOD_HANDLE = 15, METHOD_TYPE = 16, INVOKE_DYNAMIC = 18
    };

    explicit ConstantPoolInfo(int tag) : myTag(tag) {}
    virtual ~ConstantPoolInfo() {}
    virtual void writeTo(DataOutput& out) = 0;

    int getTag() const { return myTag; }

    // The entry at `index`, which must be there and carry `tag`.
    static ConstantPoolInfo* getEntry(const ConstantPool* pool, int index, int tag);
    // The text of the Utf8 entry at `index`.
    static const ZString& getUtf8(const ConstantPool* pool, int index);
    static class ConstantUtf8Info* getUtf8Entry(const ConstantPool* pool, int index);

    // A new entry in `arena`, or on the heap when there is none. An entry in
    // an arena is destroyed by calling its destructor, never deleted.
    template <typename T, typename... Args>
    static T* make(ClassArena* arena, Args&&... args) {
        if (arena == nullptr) return new T(static_cast<Args&&>(args)...);
        return new (arena->allocate(sizeof(T))) T(static_cast<Args&&>(args)...);
    }

protected:
    int myTag;
};

class ConstantUtf8Info;

// What a class learns from its texts: how often one was changed (its pool is
// then no longer the one it read), and which ones came to hold memory of
// their own, the only entries that must be destroyed one by one.
struct ConstantTextLog {
    int edits = 0;
    ZVector<ConstantUtf8Info*, 10> owners;
};

// The bytes stay as read; the ZString of getValue is built on first use, as
// most constants of a class are never looked at as text.
class ConstantUtf8Info : public ConstantPoolInfo {
public:
    // With an arena, `in` reads bytes that live in that arena, and the entry
    // points at them where they are; without one the entry owns a copy.
    ConstantUtf8Info(DataInput& in, ClassArena* arena);
    explicit ConstantUtf8Info(DataInput& in) : ConstantUtf8Info(in, nullptr) {}
    // A copy of `chars` in the arena.
    ConstantUtf8Info(const char* chars, int length, ClassArena* arena);
    ~ConstantUtf8Info() override;
    ConstantUtf8Info(const ConstantUtf8Info&) = delete;
    ConstantUtf8Info& operator=(const ConstantUtf8Info&) = delete;
    void writeTo(DataOutput& out) override;

    bool equals(const ZString& value) const { return equals(value.c_str(), value.getLength()); }
    bool equals(const char* chars, int length) const {
        return myByteLength == length && memcmp(myChars, chars, length) == 0;
    }
    // The bytes, not followed by a zero: they may lie inside the class as read.
    const char* getChars() const { return myChars; }
    int getByteLength() const { return myByteLength; }
    const ZString& getValue() const;
    void setValue(const ZString& value);
    // The log that setValue counts in and that learns of the first memory
    // this entry holds of its own.
    void setLog(ConstantTextLog* log) { myLog = log; }

private:
    const char* myChars;
    int myByteLength;
    mutable ZString* myValue;
    ConstantTextLog* myLog;
    bool myOwnsChars;
};

class ConstantIntInfo : public ConstantPoolInfo {
public:
    explicit ConstantIntInfo(int value) : ConstantPoolInfo(INTEGER), myValue(value) {}
    void writeTo(DataOutput& out) override;
    int getValue() const { return myValue; }

private:
    int myValue;
};

// Float and Double keep the bytes as read, so NaN payloads survive.
class ConstantFloatInfo : public ConstantPoolInfo {
public:
    explicit ConstantFloatInfo(DataInput& in);
    void writeTo(DataOutput& out) override;

private:
    unsigned char myBytes[4];
};

class ConstantLongInfo : public ConstantPoolInfo {
public:
    explicit ConstantLongInfo(long long value) : ConstantPoolInfo(LONG), myValue(value) {}
    void writeTo(DataOutput& out) override;
    long long getValue() const { return myValue; }

private:
    long long myValue;
};

class ConstantDoubleInfo : public ConstantPoolInfo {
public:
    explicit ConstantDoubleInfo(DataInput& in);
    void writeTo(DataOutput& out) override;

private:
    unsigned char myBytes[8];
};

class ConstantClassInfo : public ConstantPoolInfo {
public:
    explicit ConstantClassInfo(int nameIndex) : ConstantPoolInfo(CLASS), myNameIndex(nameIndex) {}
    void writeTo(DataOutput& out) override;
    bool equals(int nameIndex) const { return myNameIndex == nameIndex; }
    int getNameIndex() const { return myNameIndex; }
    const ZString& getName(const ConstantPool* pool) const { return getUtf8(pool, myNameIndex); }

private:
    int myNameIndex;
};

class ConstantStringInfo : public ConstantPoolInfo {
public:
    explicit ConstantStringInfo(int stringIndex) : ConstantPoolInfo(STRING), myStringIndex(stringIndex) {}
    void writeTo(DataOutput& out) override;
    bool equals(int stringIndex) const { return myStringIndex == stringIndex; }
    int getStringIndex() const { return myStringIndex; }

private:
    int myStringIndex;
};

// Field, method and interface method references share their shape.
class ConstantRefInfo : public ConstantPoolInfo {
public:
    ConstantRefInfo(int tag, int classIndex, int nameAndTypeIndex)
        : ConstantPoolInfo(tag), myClassIndex(classIndex), myNameAndTypeIndex(nameAndTypeIndex) {}
    void writeTo(DataOutput& out) override;
    bool equals(int classIndex, int nameAndTypeIndex) const {
        return myClassIndex == classIndex && myNameAndTypeIndex == nameAndTypeIndex;
    }
    int getClassIndex() const { return myClassIndex; }
    int getNameAndTypeIndex() const { return myNameAndTypeIndex; }
    // The internal name of the owner class, the member name, the descriptor.
    const ZString& getClassSignature(const ConstantPool* pool) const;
    const ZString& getMethodName(const ConstantPool* pool) const;
    const ZString& getMethodSignature(const ConstantPool* pool) const;

private:
    int myClassIndex;
    int myNameAndTypeIndex;
};

class ConstantFieldRefInfo : public ConstantRefInfo {
public:
    ConstantFieldRefInfo(int classIndex, int nameAndTypeIndex) : ConstantRefInfo(FIELD_REF, classIndex, nameAndTypeIndex) {}
};

class ConstantMethodRefInfo : public ConstantRefInfo {
public:
    ConstantMethodRefInfo(int classIndex, int nameAndTypeIndex) : ConstantRefInfo(METHOD_REF, classIndex, nameAndTypeIndex) {}
};

class ConstantInterfaceMethodRefInfo : public ConstantRefInfo {
public:
    ConstantInterfaceMethodRefInfo(int classIndex, int nameAndTypeIndex)
        : ConstantRefInfo(INTERFACE_METHOD_REF, classIndex, nameAndTypeIndex) {}
};

class ConstantNameAndTypeInfo : public ConstantPoolInfo {
public:
    ConstantNameAndTypeInfo(int nameIndex, int descriptorIndex)
        : ConstantPoolInfo(NAME_AND_TYPE), myNameIndex(nameIndex), myDescriptorIndex(descriptorIndex) {}
    void writeTo(DataOutput& out) override;
    bool equals(int nameIndex, int descriptorIndex) const {
        return myNameIndex == nameIndex && myDescriptorIndex == descriptorIndex;
    }
    int getNameIndex() const { return myNameIndex; }
    int getDescriptorIndex() const { return myDescriptorIndex; }
    const ZString& getName(const ConstantPool* pool) const { return getUtf8(pool, myNameIndex); }
    const ZString& getDescriptor(const ConstantPool* pool) const { return getUtf8(pool, myDescriptorIndex); }

private:
    int myNameIndex;
    int myDescriptorIndex;
};

class ConstantMethodHandleInfo : public ConstantPoolInfo {
public:
    ConstantMethodHandleInfo(int referenceKind, int referenceIndex)
        : ConstantPoolInfo(METHOD_HANDLE), myReferenceKind(referenceKind), myReferenceIndex(referenceIndex) {}
    void writeTo(DataOutput& out) override;

private:
    int myReferenceKind;
    int myReferenceIndex;
};

class ConstantMethodTypeInfo : public ConstantPoolInfo {
public:
    explicit ConstantMethodTypeInfo(int descriptorIndex) : ConstantPoolInfo(METHOD_TYPE), myDescriptorIndex(descriptorIndex) {}
    void writeTo(DataOutput& out) override;

private:
    int myDescriptorIndex;
};

class ConstantInvokeDynamicInfo : public ConstantPoolInfo {
public:
    ConstantInvokeDynamicInfo(int bootstrapMethodIndex, int nameAndTypeIndex)
        : ConstantPoolInfo(INVOKE_DYNAMIC), myBootstrapMethodIndex(bootstrapMethodIndex), myNameAndTypeIndex(nameAndTypeIndex) {}
    void writeTo(DataOutput& out) override;

private:
    int myBootstrapMethodIndex;
    int myNameAndTypeIndex;
};

class ConstantPoolInfoReader {
public:
    // Reads one entry; null for a tag this toolkit does not model, after
    // logging "Unknown Constant Pool Info tag: " and the tag.
    static ConstantPoolInfo* create(DataInput& in) { return create(in, nullptr); }
    static ConstantPoolInfo* create(DataInput& in, ClassArena* arena);
};
