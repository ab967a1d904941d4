#include "classfile/ClassFile.h"

#include "foundation/Failure.h"

ClassFile::ClassFile(DataInput& in, bool borrowBytes)
    : myMagic(0), myAccessFlags(0), mySuperClass(0), myInterfaceCount(0), myInterfaces(nullptr) {
    try {
        parse(in, borrowBytes);
    } catch (...) {
        release();
        throw;
    }
    endParsing();
}

ClassFile::~ClassFile() { release(); }

void ClassFile::release() {
    for (int i = 0; i < myFields.getSize(); i++) delete myFields[i];
    myFields.clear();
    for (int i = 0; i < myMethods.getSize(); i++) delete myMethods[i];
    myMethods.clear();
    AttributeInfo::deleteAll(myAttributes);
    delete[] myInterfaces;
    myInterfaces = nullptr;
    releasePool();
}

void ClassFile::parse(DataInput& source, bool borrowBytes) {
    // Unless borrowed, the class is copied once into the arena and read from
    // there: the constants' texts and the pool as read are views into it.
    int length = source.available();
    // The copy and the parts of a class take about four times its size.
    myArena.reserve(length * 4 + 256);
    const unsigned char* bytes = source.peek(length);
    source.skip(length);
    if (!borrowBytes && length > 0) {
        unsigned char* copy = (unsigned char*)myArena.allocate(length);
        memcpy(copy, bytes, length);
        bytes = copy;
    }
    DataInput in(bytes, length);
    myMagic = in.readInt();
    if (!readPool(in)) return;

    myAccessFlags = in.readUnsignedShort();
    myThisClass = in.readUnsignedShort();
    KZT_ASSERT(myThisClass >= 1);
    mySuperClass = in.readUnsignedShort();
    int interfaceCount = in.readUnsignedShort();
    in.peek(interfaceCount * 2);
    myInterfaces = new int[interfaceCount > 0 ? interfaceCount : 1];
    myInterfaceCount = interfaceCount;
    for (int i = 0; i < interfaceCount; i++) {
        myInterfaces[i] = in.readUnsignedShort();
        KZT_ASSERT(myInterfaces[i] >= 1);
    }
    int fieldCount = in.readUnsignedShort();
    for (int i = 0; i < fieldCount; i++) myFields.push(new (&myArena) FieldInfo(in, &myConstantPool, &myArena));
    int methodCount = in.readUnsignedShort();
    for (int i = 0; i < methodCount; i++) myMethods.push(new (&myArena) MethodInfo(in, &myConstantPool, &myArena));
    AttributeInfo::readAll(in, &myConstantPool, myAttributes, &myArena);

    if (myMajorVersion >= 50) {
        for (int i = 0; i < myMethods.getSize(); i++) myMethods[i]->parseStackMapTable(this);
    }
}

static void writeBody(DataOutput& out, int accessFlags, int thisClass, int superClass, int interfaceCount,
                      const int* interfaces, ZVector<FieldInfo*, 10>& fields, ZVector<MethodInfo*, 10>& methods,
                      ZVector<AttributeInfo*, 10>& attributes) {
    out.writeUnsignedShort(accessFlags);
    out.writeUnsignedShort(thisClass);
    out.writeUnsignedShort(superClass);
    out.writeUnsignedShort(interfaceCount);
    for (int i = 0; i < interfaceCount; i++) out.writeUnsignedShort(interfaces[i]);
    out.writeUnsignedShort(fields.getSize());
    for (int i = 0; i < fields.getSize(); i++) fields[i]->writeTo(out);
    out.writeUnsignedShort(methods.getSize());
    for (int i = 0; i < methods.getSize(); i++) methods[i]->writeTo(out);
    AttributeInfo::writeAll(out, attributes);
}

void ClassFile::writeClass(DataOutput& out) {
    KZT_ASSERT(!myInvalid);
    out.writeInt(myMagic);
    PoolMarks marks = writePool(out);
    writeBody(out, myAccessFlags, myThisClass, mySuperClass, myInterfaceCount, myInterfaces, myFields, myMethods,
              myAttributes);
    endPool(out, marks);
}

// ---- readers ----

const ZString& ClassFile::getSignature() const { return getConstantClassSignature(myThisClass); }

const ZString* ClassFile::getSuperClassSignature() const {
    if (mySuperClass == 0) return nullptr;
    return &getConstantClassSignature(mySuperClass);
}

ZString ClassFile::getSourceName() const {
    for (int i = 0; i < myAttributes.getSize(); i++) {
        if (myAttributes[i]->getKind() == AttributeInfo::SOURCE_FILE) {
            return static_cast<SourceFileAttribute*>(myAttributes[i])->getSourceName();
        }
    }
    return ZString();
}

int ClassFile::getInterface(int i) const {
    KZT_ASSERT(i >= 0 && i < myInterfaceCount);
    return myInterfaces[i];
}

bool ClassFile::hasDirectInterface(const ZString& name) const {
    for (int i = 0; i < myInterfaceCount; i++) {
        if (getConstantClassSignature(myInterfaces[i]).equals(name)) return true;
    }
    return false;
}

void ClassFile::fillInnerClassNames(ZVectorSafe<ZString>& names) const {
    for (int i = 0; i < myAttributes.getSize(); i++) {
        if (myAttributes[i]->getKind() == AttributeInfo::INNER_CLASSES) {
            static_cast<InnerClassesAttribute*>(myAttributes[i])->fillClassNames(names);
        }
    }
}

MethodInfo* ClassFile::findMethod(const ZString& name, const ZString& descriptor) const {
    for (int i = 0; i < myMethods.getSize(); i++) {
        MethodInfo* m = myMethods[i];
        if (m->getName().equals(name) && m->getDescriptor().equals(descriptor)) return m;
    }
    return nullptr;
}

MethodInfo* ClassFile::findFirstMethod(const ZString& name, bool* multiple) const {
    MethodInfo* first = nullptr;
    if (multiple != nullptr) *multiple = false;
    for (int i = 0; i < myMethods.getSize(); i++) {
        if (!myMethods[i]->getName().equals(name)) continue;
        if (first == nullptr) {
            first = myMethods[i];
        } else {
            if (multiple != nullptr) *multiple = true;
            break;
        }
    }
    return first;
}

int ClassFile::findOrCreateMethod(const ZString& name, const ZString& descriptor, int access) {
    KZT_ASSERT(access >= 0);
    for (int i = 0; i < myMethods.getSize(); i++) {
        MethodInfo* m = myMethods[i];
        if (m->getName().equals(name) && m->getDescriptor().equals(descriptor)) return i;
    }
    int nameIndex = findOrCreateUtf8(name);
    int descriptorIndex = findOrCreateUtf8(descriptor);
    return myMethods.push(new (&myArena) MethodInfo(&myConstantPool, access, nameIndex, descriptorIndex, &myArena));
}

void ClassFile::removeUnusedMacroMethods() {
    ZVectorSafe<ZString> from;
    ZVectorSafe<ZString> to;
    int kept = 0;
    for (int i = 0; i < myMethods.getSize(); i++) {
        MethodInfo* m = myMethods[i];
        const ZString& name = m->getName();
        if (name.startsWith("$$") && name.endsWith("$$")) {
            from.push(name);
            to.push(ZString());
            delete m;
        } else {
            myMethods[kept++] = m;
        }
    }
    myMethods.removeRange(kept, myMethods.getSize());
    if (!from.isEmpty()) patchConstantPool(from, to);
}
