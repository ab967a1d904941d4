#include "classfile/Attributes.h"

#include "foundation/Failure.h"
#include "foundation/System.h"

AttributeInfo::AttributeInfo(Kind kind, int nameIndex, int length)
    : myAttributeNameIndex(nameIndex), myAttributeLength(length), myKind(kind) {
    KZT_ASSERT(nameIndex >= 1);
    KZT_ASSERT(length >= 0);
}

void AttributeInfo::setAttributeLength(int length) {
    KZT_ASSERT(length >= 0);
    myAttributeLength = length;
}

void AttributeInfo::write(DataOutput& out) {
    out.writeUnsignedShort(myAttributeNameIndex);
    out.writeInt(myAttributeLength);
    writeTo(out);
}

void AttributeInfo::deleteAll(ZVector<AttributeInfo*, 10>& attributes) {
    for (int i = 0; i < attributes.getSize(); i++) delete attributes[i];
    attributes.clear();
}

void AttributeInfo::readAll(DataInput& in, ConstantPool* pool, ZVector<AttributeInfo*, 10>& attributes,
                            ClassArena* arena, Maker maker) {
    try {
        int count = in.readUnsignedShort();
        for (int i = 0; i < count; i++) attributes.push(AttributeInfoReader::create(in, pool, arena, maker));
    } catch (...) {
        deleteAll(attributes);
        throw;
    }
}

void AttributeInfo::writeAll(DataOutput& out, ZVector<AttributeInfo*, 10>& attributes) {
    out.writeUnsignedShort(attributes.getSize());
    for (int i = 0; i < attributes.getSize(); i++) attributes[i]->write(out);
}

static bool named(const ConstantUtf8Info* name, const char* text, int length) {
    return memcmp(name->getChars(), text, length) == 0;
}

// Names by length first: a class has few attribute names, but many attributes.
static AttributeInfo* createByName(const ConstantUtf8Info* name, DataInput& in, ConstantPool* pool, int nameIndex,
                                   int length, ClassArena* arena) {
    switch (name->getByteLength()) {
    case 9:
        if (named(name, "Synthetic", 9)) return new (arena) SyntheticAttribute(nameIndex, length);
        break;
    case 10:
        if (named(name, "Deprecated", 10)) return new (arena) DeprecatedAttribute(nameIndex, length);
        if (named(name, "Exceptions", 10)) return new (arena) ExceptionsAttribute(in, pool, nameIndex, length);
        if (named(name, "SourceFile", 10)) return new (arena) SourceFileAttribute(in, pool, nameIndex, length);
        break;
    case 12:
        if (named(name, "InnerClasses", 12)) return new (arena) InnerClassesAttribute(in, pool, nameIndex, length);
        break;
    case 13:
        if (named(name, "ConstantValue", 13)) return new (arena) ConstantValueAttribute(in, nameIndex, length);
        if (named(name, "StackMapTable", 13)) return new (arena) StackMapTableAttribute(in, nameIndex, length, arena);
        break;
    case 25:
        if (named(name, "RuntimeVisibleAnnotations", 25)) return new (arena) AnnotationsAttribute(in, nameIndex, length, arena);
        break;
    case 27:
        if (named(name, "RuntimeInvisibleAnnotations", 27)) return new (arena) AnnotationsAttribute(in, nameIndex, length, arena);
        break;
    case 36:
        if (named(name, "RuntimeInvisibleParameterAnnotations", 36)) {
            return new (arena) ParameterAnnotationsAttribute(in, nameIndex, length, arena);
        }
        break;
    }
    return new (arena) UnknownAttribute(in, nameIndex, length, arena);
}

AttributeInfo* AttributeInfoReader::create(DataInput& in, ConstantPool* pool, ClassArena* arena,
                                           AttributeInfo::Maker maker) {
    int nameIndex = in.readUnsignedShort();
    int length = in.readInt();
    KZT_ASSERT(nameIndex >= 1);
    KZT_ASSERT(length >= 0);
    const ConstantUtf8Info* name = ConstantPoolInfo::getUtf8Entry(pool, nameIndex);
    int start = in.getPosition();
    AttributeInfo* attribute = maker != nullptr ? maker(name, in, pool, nameIndex, length, arena) : nullptr;
    if (attribute == nullptr) attribute = createByName(name, in, pool, nameIndex, length, arena);
    if (in.getPosition() - start != length) {
        delete attribute;
        failFatal("assertion failed", __FILE__, __LINE__);
    }
    return attribute;
}

RawAttribute::RawAttribute(Kind kind, DataInput& in, int nameIndex, int length, ClassArena* arena)
    : AttributeInfo(kind, nameIndex, length), myBytes(nullptr), myLength(length), myOwnsBytes(arena == nullptr) {
    in.peek(length);  // fail on a bad length before allocating for it
    myBytes = arena != nullptr ? (unsigned char*)arena->allocate(length) : new unsigned char[length];
    in.readFully(myBytes, length);
}

RawAttribute::RawAttribute(Kind kind, int nameIndex, const unsigned char* bytes, int length)
    : AttributeInfo(kind, nameIndex, length), myBytes(new unsigned char[length]), myLength(length), myOwnsBytes(true) {
    if (length > 0) memcpy(myBytes, bytes, length);
}

RawAttribute::~RawAttribute() {
    if (myOwnsBytes) delete[] myBytes;
}

void RawAttribute::writeTo(DataOutput& out) { out.write(myBytes, myLength); }

ConstantValueAttribute::ConstantValueAttribute(DataInput& in, int nameIndex, int length)
    : AttributeInfo(CONSTANT_VALUE, nameIndex, length), myConstantValueIndex(in.readUnsignedShort()) {}

void ConstantValueAttribute::writeTo(DataOutput& out) { out.writeUnsignedShort(myConstantValueIndex); }

ExceptionsAttribute::ExceptionsAttribute(DataInput& in, ConstantPool* pool, int nameIndex, int length)
    : AttributeInfo(EXCEPTIONS, nameIndex, length), myConstantPool(pool) {
    int count = in.readUnsignedShort();
    for (int i = 0; i < count; i++) myIndices.push(in.readUnsignedShort());
}

void ExceptionsAttribute::writeTo(DataOutput& out) {
    out.writeUnsignedShort(myIndices.getSize());
    for (int i = 0; i < myIndices.getSize(); i++) out.writeUnsignedShort(myIndices[i]);
}

void ExceptionsAttribute::fillExceptions(ZVectorSafe<ZString>& names) const {
    for (int i = 0; i < myIndices.getSize(); i++) {
        ConstantPoolInfo* entry = ConstantPoolInfo::getEntry(myConstantPool, myIndices[i], ConstantPoolInfo::CLASS);
        names.push(static_cast<ConstantClassInfo*>(entry)->getName(myConstantPool));
    }
}

InnerClassesAttribute::InnerClassesAttribute(DataInput& in, ConstantPool* pool, int nameIndex, int length)
    : AttributeInfo(INNER_CLASSES, nameIndex, length), myConstantPool(pool) {
    int count = in.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        Classes c;
        c.innerClassInfoIndex = in.readUnsignedShort();
        c.outerClassInfoIndex = in.readUnsignedShort();
        c.innerNameIndex = in.readUnsignedShort();
        c.innerClassAccessFlags = in.readUnsignedShort();
        myClasses.push(c);
    }
}

void InnerClassesAttribute::writeTo(DataOutput& out) {
    out.writeUnsignedShort(myClasses.getSize());
    for (int i = 0; i < myClasses.getSize(); i++) {
        const Classes& c = myClasses[i];
        out.writeUnsignedShort(c.innerClassInfoIndex);
        out.writeUnsignedShort(c.outerClassInfoIndex);
        out.writeUnsignedShort(c.innerNameIndex);
        out.writeUnsignedShort(c.innerClassAccessFlags);
    }
}

void InnerClassesAttribute::fillClassNames(ZVectorSafe<ZString>& names) const {
    for (int i = 0; i < myClasses.getSize(); i++) {
        int index = myClasses[i].innerClassInfoIndex;
        ConstantPoolInfo* entry = ConstantPoolInfo::getEntry(myConstantPool, index, ConstantPoolInfo::CLASS);
        names.push(static_cast<ConstantClassInfo*>(entry)->getName(myConstantPool));
    }
}

SourceFileAttribute::SourceFileAttribute(DataInput& in, ConstantPool* pool, int nameIndex, int length)
    : AttributeInfo(SOURCE_FILE, nameIndex, length), myConstantPool(pool), mySourceFileIndex(in.readUnsignedShort()) {}

void SourceFileAttribute::writeTo(DataOutput& out) { out.writeUnsignedShort(mySourceFileIndex); }

// Nesting is bounded so that a hostile class cannot run the stack out.
static const int MAX_ANNOTATION_DEPTH = 64;

void AnnotationsAttribute::skipAnnotationPairs(DataInput& in, int depth) {
    KZT_ASSERT(depth < MAX_ANNOTATION_DEPTH);
    int pairs = in.readUnsignedShort();
    for (int i = 0; i < pairs; i++) {
        in.readUnsignedShort();  // element name
        skipAnnotationElementByTag(in.readUnsignedByte(), in, depth);
    }
}

void AnnotationsAttribute::skipAnnotationElementByTag(int tag, DataInput& in, int depth) {
    KZT_ASSERT(depth < MAX_ANNOTATION_DEPTH);
    switch (tag) {
    case '@':
        in.readUnsignedShort();
        skipAnnotationPairs(in, depth + 1);
        break;
    case '[': {
        int count = in.readUnsignedShort();
        for (int i = 0; i < count; i++) skipAnnotationElementByTag(in.readUnsignedByte(), in, depth + 1);
        break;
    }
    case 'e':
        in.readUnsignedShort();
        in.readUnsignedShort();
        break;
    default:
        in.readUnsignedShort();
        break;
    }
}

bool AnnotationsAttribute::hasMatchingAnnotation(const ZString& pattern, ZVector<AttributeInfo*, 10>& attributes,
                                                 const ConstantPool* pool) {
    if (pattern.isEmpty()) return true;
    for (int i = 0; i < attributes.getSize(); i++) {
        if (attributes[i]->getKind() != ANNOTATIONS) continue;
        AnnotationsAttribute* annotations = static_cast<AnnotationsAttribute*>(attributes[i]);
        DataInput in(annotations->getBytes(), annotations->getLength());
        int count = in.readUnsignedShort();
        for (int a = 0; a < count; a++) {
            const ZString& type = ConstantPoolInfo::getUtf8(pool, in.readUnsignedShort());
            if (wildcardMatchZS(pattern, type)) return true;
            skipAnnotationPairs(in);
        }
    }
    return false;
}
