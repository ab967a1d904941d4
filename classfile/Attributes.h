// Attributes of classes, fields, methods and code. The stored length is what
// is written, so any edit of a body must call setAttributeLength. Attributes
// the toolkit does not model pass through as raw bytes, in place.
#pragma once

#include "classfile/ArenaObject.h"
#include "classfile/ConstantPool.h"
#include "classfile/DataInput.h"
#include "classfile/DataOutput.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class AttributeInfo : public ArenaObject {
public:
    // What a reader made of the attribute; saves comparing names.
    enum Kind {
        UNKNOWN, CODE, CONSTANT_VALUE, DEPRECATED, EXCEPTIONS, INNER_CLASSES, LINE_NUMBER_TABLE,
        LOCAL_VARIABLE_TABLE, LOCAL_VARIABLE_TYPE_TABLE, SOURCE_FILE, SYNTHETIC, STACK_MAP_TABLE,
        ANNOTATIONS, PARAMETER_ANNOTATIONS
    };

    AttributeInfo(Kind kind, int nameIndex, int length);
    // The body only; `write` adds name and length in front.
    virtual void writeTo(DataOutput& out) = 0;
    virtual ~AttributeInfo() {}

    void write(DataOutput& out);

    Kind getKind() const { return myKind; }
    int getAttributeNameIndex() const { return myAttributeNameIndex; }
    int getAttributeLength() const { return myAttributeLength; }
    void setAttributeLength(int length);
    const ZString& getName(const ConstantPool* pool) const { return ConstantPoolInfo::getUtf8(pool, myAttributeNameIndex); }

    // Makes an attribute of a level above the general ones (a method's
    // "Code", the tables of code) from its name, or gives null.
    typedef AttributeInfo* (*Maker)(const ConstantUtf8Info* name, DataInput& in, ConstantPool* pool, int nameIndex,
                                    int length, ClassArena* arena);

    // Deletes the attributes and empties the vector.
    static void deleteAll(ZVector<AttributeInfo*, 10>& attributes);
    // Reads a u2 count and that many attributes into `attributes`, in
    // `arena` when given; `maker` is asked first. On a failure the ones read
    // so far are deleted before the failure goes on.
    static void readAll(DataInput& in, ConstantPool* pool, ZVector<AttributeInfo*, 10>& attributes,
                        ClassArena* arena = nullptr, Maker maker = nullptr);
    static void writeAll(DataOutput& out, ZVector<AttributeInfo*, 10>& attributes);

protected:
    int myAttributeNameIndex;
    int myAttributeLength;
    Kind myKind;
};

class AttributeInfoReader {
public:
    // Chooses the class by the exact name text. A known attribute must
    // consume exactly its declared length.
    static AttributeInfo* create(DataInput& in, ConstantPool* pool, ClassArena* arena = nullptr,
                                 AttributeInfo::Maker maker = nullptr);
};

// Any attribute kept as its bytes: unknown ones, and those read on demand.
// The bytes live in the arena the attribute came from, else on the heap.
class RawAttribute : public AttributeInfo {
public:
    RawAttribute(Kind kind, DataInput& in, int nameIndex, int length, ClassArena* arena = nullptr);
    RawAttribute(Kind kind, int nameIndex, const unsigned char* bytes, int length);
    ~RawAttribute() override;
    RawAttribute(const RawAttribute&) = delete;
    RawAttribute& operator=(const RawAttribute&) = delete;
    void writeTo(DataOutput& out) override;
    const unsigned char* getBytes() const { return myBytes; }
    int getLength() const { return myLength; }

protected:
    unsigned char* myBytes;
    int myLength;
    bool myOwnsBytes;
};

class UnknownAttribute : public RawAttribute {
public:
    UnknownAttribute(DataInput& in, int nameIndex, int length, ClassArena* arena = nullptr)
        : RawAttribute(UNKNOWN, in, nameIndex, length, arena) {}
};

// "RuntimeVisibleAnnotations" and "RuntimeInvisibleAnnotations"; the probe
// readers walk the bytes when they need them.
class AnnotationsAttribute : public RawAttribute {
public:
    AnnotationsAttribute(DataInput& in, int nameIndex, int length, ClassArena* arena = nullptr)
        : RawAttribute(ANNOTATIONS, in, nameIndex, length, arena) {}

    // True for an empty pattern, or when the type descriptor of an
    // annotation in one of `attributes` matches the wildcard pattern.
    static bool hasMatchingAnnotation(const ZString& pattern, ZVector<AttributeInfo*, 10>& attributes,
                                      const ConstantPool* pool);
    // Skips one element value of the given tag: "@" a nested annotation,
    // "[" an array, "e" two indices, anything else one index.
    static void skipAnnotationElementByTag(int tag, DataInput& in, int depth = 0);
    // Skips an annotation's element pairs, its type index already read.
    static void skipAnnotationPairs(DataInput& in, int depth = 0);
};

// "RuntimeInvisibleParameterAnnotations".
class ParameterAnnotationsAttribute : public RawAttribute {
public:
    ParameterAnnotationsAttribute(DataInput& in, int nameIndex, int length, ClassArena* arena = nullptr)
        : RawAttribute(PARAMETER_ANNOTATIONS, in, nameIndex, length, arena) {}
};

class ConstantValueAttribute : public AttributeInfo {
public:
    ConstantValueAttribute(DataInput& in, int nameIndex, int length);
    void writeTo(DataOutput& out) override;
    int getConstantValueIndex() const { return myConstantValueIndex; }

private:
    int myConstantValueIndex;
};

class DeprecatedAttribute : public AttributeInfo {
public:
    DeprecatedAttribute(int nameIndex, int length) : AttributeInfo(DEPRECATED, nameIndex, length) {}
    void writeTo(DataOutput& out) override {}
};

class SyntheticAttribute : public AttributeInfo {
public:
    SyntheticAttribute(int nameIndex, int length) : AttributeInfo(SYNTHETIC, nameIndex, length) {}
    void writeTo(DataOutput& out) override {}
};

class ExceptionsAttribute : public AttributeInfo {
public:
    ExceptionsAttribute(DataInput& in, ConstantPool* pool, int nameIndex, int length);
    void writeTo(DataOutput& out) override;
    int getCount() const { return myIndices.getSize(); }
    int getExceptionIndex(int i) const { return myIndices[i]; }
    // Appends the internal names of the declared exception classes.
    void fillExceptions(ZVectorSafe<ZString>& names) const;

private:
    ConstantPool* myConstantPool;
    ZVector<int, 10> myIndices;
};

class InnerClassesAttribute : public AttributeInfo {
public:
    struct Classes {
        int innerClassInfoIndex;
        int outerClassInfoIndex;
        int innerNameIndex;
        int innerClassAccessFlags;
    };

    InnerClassesAttribute(DataInput& in, ConstantPool* pool, int nameIndex, int length);
    void writeTo(DataOutput& out) override;
    int getCount() const { return myClasses.getSize(); }
    const Classes& getClasses(int i) const { return myClasses[i]; }
    // Appends the internal names of the inner classes.
    void fillClassNames(ZVectorSafe<ZString>& names) const;

private:
    ConstantPool* myConstantPool;
    ZVector<Classes, 10> myClasses;
};

class SourceFileAttribute : public AttributeInfo {
public:
    SourceFileAttribute(DataInput& in, ConstantPool* pool, int nameIndex, int length);
    void writeTo(DataOutput& out) override;
    const ZString& getSourceName() const { return ConstantPoolInfo::getUtf8(myConstantPool, mySourceFileIndex); }

private:
    ConstantPool* myConstantPool;
    int mySourceFileIndex;
};

// Held raw until the code attribute expands it into frames; written anew
// from the frames just for the moment of a write.
class StackMapTableAttribute : public RawAttribute {
public:
    StackMapTableAttribute(DataInput& in, int nameIndex, int length, ClassArena* arena = nullptr)
        : RawAttribute(STACK_MAP_TABLE, in, nameIndex, length, arena) {}
    StackMapTableAttribute(int nameIndex, const unsigned char* bytes, int length)
        : RawAttribute(STACK_MAP_TABLE, nameIndex, bytes, length) {}
};
