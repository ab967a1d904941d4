#include "classfile/ClassFile.h"

#include "foundation/Failure.h"

ClassFile::ClassFile(DataInput& in, bool borrowBytes)
    : myMagic(0), myMajorVersion(0), myMinorVersion(0), myAccessFlags(0), myThisClass(0), mySuperClass(0),
      myInterfaceCount(0), myInterfaces(nullptr), myIndex(&myArena), myInvalid(false),
      myParsedPoolSize(0), myProvisionalPoolSize(0), myProvisionalUsed(false), myParsing(true), myPoolBytes(nullptr),
      myPoolByteLength(0) {
    try {
        parse(in, borrowBytes);
    } catch (...) {
        release();
        throw;
    }
    myProvisionalPoolSize = myConstantPool.getSize();
    myParsing = false;
}

ClassFile::~ClassFile() { release(); }

void ClassFile::release() {
    // Entries live in the arena: their memory goes with it. Only texts can
    // hold anything of their own, and the log knows which.
    for (int i = 0; i < myTexts.owners.getSize(); i++) myTexts.owners[i]->~ConstantUtf8Info();
    myTexts.owners.clear();
    myConstantPool.clear();
    for (int i = 0; i < myFields.getSize(); i++) delete myFields[i];
    myFields.clear();
    for (int i = 0; i < myMethods.getSize(); i++) delete myMethods[i];
    myMethods.clear();
    AttributeInfo::deleteAll(myAttributes);
    delete[] myInterfaces;
    myInterfaces = nullptr;
    myArena.release();
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
    myMinorVersion = in.readUnsignedShort();
    myMajorVersion = in.readUnsignedShort();
    int count = in.readUnsignedShort();
    // Room for the constants a rewrite adds too.
    myConstantPool.reserve(count + 32);
    myConstantPool.push(nullptr);
    const unsigned char* poolStart = in.peek(0);
    int poolPosition = in.getPosition();
    for (int i = 1; i < count;) {
        ConstantPoolInfo* entry = ConstantPoolInfoReader::create(in, &myArena);
        if (entry == nullptr) {
            myInvalid = true;
            myParsedPoolSize = myConstantPool.getSize();
            return;
        }
        myConstantPool.push(entry);
        i++;
        if (entry->getTag() == ConstantPoolInfo::UTF8) {
            static_cast<ConstantUtf8Info*>(entry)->setLog(&myTexts);
        } else if (entry->getTag() == ConstantPoolInfo::LONG || entry->getTag() == ConstantPoolInfo::DOUBLE) {
            KZT_ASSERT(i < count);  // its second slot must be inside the pool
            myConstantPool.push(nullptr);
            i++;
        }
    }
    myParsedPoolSize = myConstantPool.getSize();
    myIndex.setParsedSize(myParsedPoolSize);
    myPoolByteLength = in.getPosition() - poolPosition;
    myPoolBytes = poolStart;

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
    out.writeUnsignedShort(myMinorVersion);
    out.writeUnsignedShort(myMajorVersion);
    int countAt = out.getSize();
    out.writeUnsignedShort(myConstantPool.getSize());
    int provisionalAt = -1;
    int from = 1;
    if (myTexts.edits == 0) {
        out.write(myPoolBytes, myPoolByteLength);
        from = myParsedPoolSize;
    }
    for (int i = from; i < myConstantPool.getSize(); i++) {
        if (i == myParsedPoolSize) provisionalAt = out.getSize();
        ConstantPoolInfo* entry = myConstantPool[i];
        if (entry != nullptr) entry->writeTo(out);
    }
    int poolEnd = out.getSize();
    int outerHighest = out.getHighestPoolReference();
    out.setHighestPoolReference(0);
    writeBody(out, myAccessFlags, myThisClass, mySuperClass, myInterfaceCount, myInterfaces, myFields, myMethods,
              myAttributes);
    int highest = out.getHighestPoolReference();
    out.notePoolReference(outerHighest);
    // Constants that parsing added (the stack map name, classes of parameter
    // types in initial frames) stay out unless something written refers to
    // them; only frames can, and the encoder has noted what they did.
    bool unused = !myProvisionalUsed && myConstantPool.getSize() == myProvisionalPoolSize &&
                  provisionalAt >= 0 && highest < myParsedPoolSize;
    if (unused) {
        out.cut(provisionalAt, poolEnd);
        DataOutput::putU2(out.getData() + countAt, myParsedPoolSize);
    }
}

// ---- readers ----

const ZString& ClassFile::getConstantClassSignature(int index) const {
    ConstantPoolInfo* entry = myConstantPool[index];
    KZT_ASSERT_NOT_NULL(entry);
    KZT_ASSERT(entry->getTag() == ConstantPoolInfo::CLASS);
    return static_cast<ConstantClassInfo*>(entry)->getName(&myConstantPool);
}

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

// ---- new constants ----

int ClassFile::appendEntry(ConstantPoolInfo* entry) { return myConstantPool.push(entry); }

int ClassFile::noteFound(int index) {
    if (!myParsing && index >= myParsedPoolSize && index < myProvisionalPoolSize) myProvisionalUsed = true;
    return index;
}

int ClassFile::findOrCreateUtf8(const ZString& value) { return findOrCreateUtf8(value.c_str(), value.getLength()); }

int ClassFile::findOrCreateUtf8(const char* chars, int length) {
    KZT_ASSERT(length >= 0);
    int index = myIndex.findUtf8(myConstantPool, myTexts.edits, chars, length);
    if (index > 0) return noteFound(index);
    ConstantUtf8Info* entry = ConstantPoolInfo::make<ConstantUtf8Info>(&myArena, chars, length, &myArena);
    entry->setLog(&myTexts);
    return appendEntry(entry);
}

int ClassFile::findOrCreateConstantClass(int nameIndex) {
    KZT_ASSERT(nameIndex >= 1);
    int index = myIndex.findClass(myConstantPool, myTexts.edits, nameIndex);
    return index > 0 ? noteFound(index) : appendEntry(ConstantPoolInfo::make<ConstantClassInfo>(&myArena, nameIndex));
}

int ClassFile::findOrCreateStringInfo(const ZString& value) {
    int utf8 = findOrCreateUtf8(value);
    int index = myIndex.findString(myConstantPool, myTexts.edits, utf8);
    return index > 0 ? noteFound(index) : appendEntry(ConstantPoolInfo::make<ConstantStringInfo>(&myArena, utf8));
}

int ClassFile::findOrCreateNameAndType(int nameIndex, int descriptorIndex) {
    KZT_ASSERT(nameIndex >= 1);
    KZT_ASSERT(descriptorIndex >= 1);
    int index = myIndex.findNameAndType(myConstantPool, myTexts.edits, nameIndex, descriptorIndex);
    if (index > 0) return noteFound(index);
    return appendEntry(ConstantPoolInfo::make<ConstantNameAndTypeInfo>(&myArena, nameIndex, descriptorIndex));
}

int ClassFile::findOrCreateMethodRef(int classIndex, int nameIndex, int descriptorIndex) {
    KZT_ASSERT(classIndex >= 1);
    int nameAndType = findOrCreateNameAndType(nameIndex, descriptorIndex);
    int index = myIndex.findMethodRef(myConstantPool, myTexts.edits, classIndex, nameAndType);
    if (index > 0) return noteFound(index);
    return appendEntry(ConstantPoolInfo::make<ConstantMethodRefInfo>(&myArena, classIndex, nameAndType));
}

int ClassFile::findOrCreateIntInfo(int value) {
    int index = myIndex.findInteger(myConstantPool, myTexts.edits, value);
    if (index > 0) return noteFound(index);
    return appendEntry(ConstantPoolInfo::make<ConstantIntInfo>(&myArena, value));
}

int ClassFile::findOrCreateLongInfo(long long value) {
    int index = myIndex.findLong(myConstantPool, myTexts.edits, value);
    if (index > 0) return noteFound(index);
    index = appendEntry(ConstantPoolInfo::make<ConstantLongInfo>(&myArena, value));
    appendEntry(nullptr);
    return index;
}

// ---- pool patching ----

void ClassFile::patchConstantPool(const ZVectorSafe<ZString>& from, const ZVectorSafe<ZString>& to) {
    KZT_ASSERT(from.getSize() == to.getSize());
    for (int p = 0; p < from.getSize(); p++) {
        for (int i = 1; i < myConstantPool.getSize(); i++) {
            ConstantPoolInfo* entry = myConstantPool[i];
            if (entry == nullptr || entry->getTag() != ConstantPoolInfo::UTF8) continue;
            ConstantUtf8Info* utf8 = static_cast<ConstantUtf8Info*>(entry);
            if (utf8->getValue().contains(from[p])) {
                utf8->setValue(utf8->getValue().replaceAll(from[p].c_str(), to[p].c_str()));
            }
        }
    }
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
