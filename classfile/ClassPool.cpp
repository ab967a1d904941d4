#include "classfile/ClassPool.h"

#include "foundation/Failure.h"

ClassPool::ClassPool()
    : myMajorVersion(0), myMinorVersion(0), myThisClass(0), myInvalid(false), myIndex(&myArena), myParsedPoolSize(0),
      myProvisionalPoolSize(0), myProvisionalUsed(false), myParsing(true), myPoolBytes(nullptr), myPoolByteLength(0) {}

void ClassPool::releasePool() {
    // Entries live in the arena: their memory goes with it. Only texts can
    // hold anything of their own, and the log knows which.
    for (int i = 0; i < myTexts.owners.getSize(); i++) myTexts.owners[i]->~ConstantUtf8Info();
    myTexts.owners.clear();
    myConstantPool.clear();
    myArena.release();
}

bool ClassPool::readPool(DataInput& in) {
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
            return false;
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
    return true;
}

void ClassPool::endParsing() {
    myProvisionalPoolSize = myConstantPool.getSize();
    myParsing = false;
}

ClassPool::PoolMarks ClassPool::writePool(DataOutput& out) {
    PoolMarks marks;
    out.writeUnsignedShort(myMinorVersion);
    out.writeUnsignedShort(myMajorVersion);
    marks.countAt = out.getSize();
    out.writeUnsignedShort(myConstantPool.getSize());
    marks.provisionalAt = -1;
    int from = 1;
    if (myTexts.edits == 0) {
        out.write(myPoolBytes, myPoolByteLength);
        from = myParsedPoolSize;
    }
    for (int i = from; i < myConstantPool.getSize(); i++) {
        if (i == myParsedPoolSize) marks.provisionalAt = out.getSize();
        ConstantPoolInfo* entry = myConstantPool[i];
        if (entry != nullptr) entry->writeTo(out);
    }
    marks.poolEnd = out.getSize();
    marks.outerHighest = out.getHighestPoolReference();
    out.setHighestPoolReference(0);
    return marks;
}

void ClassPool::endPool(DataOutput& out, const PoolMarks& marks) {
    int highest = out.getHighestPoolReference();
    out.notePoolReference(marks.outerHighest);
    // Constants that parsing added (the stack map name, classes of parameter
    // types in initial frames) stay out unless something written refers to
    // them; only frames can, and the encoder has noted what they did.
    bool unused = !myProvisionalUsed && myConstantPool.getSize() == myProvisionalPoolSize &&
                  marks.provisionalAt >= 0 && highest < myParsedPoolSize;
    if (unused) {
        out.cut(marks.provisionalAt, marks.poolEnd);
        DataOutput::putU2(out.getData() + marks.countAt, myParsedPoolSize);
    }
}

const ZString& ClassPool::getConstantClassSignature(int index) const {
    ConstantPoolInfo* entry = myConstantPool[index];
    KZT_ASSERT_NOT_NULL(entry);
    KZT_ASSERT(entry->getTag() == ConstantPoolInfo::CLASS);
    return static_cast<ConstantClassInfo*>(entry)->getName(&myConstantPool);
}

// ---- new constants ----

int ClassPool::appendEntry(ConstantPoolInfo* entry) { return myConstantPool.push(entry); }

int ClassPool::noteFound(int index) {
    if (!myParsing && index >= myParsedPoolSize && index < myProvisionalPoolSize) myProvisionalUsed = true;
    return index;
}

int ClassPool::findOrCreateUtf8(const ZString& value) { return findOrCreateUtf8(value.c_str(), value.getLength()); }

int ClassPool::findOrCreateUtf8(const char* chars, int length) {
    KZT_ASSERT(length >= 0);
    int index = myIndex.findUtf8(myConstantPool, myTexts.edits, chars, length);
    if (index > 0) return noteFound(index);
    ConstantUtf8Info* entry = ConstantPoolInfo::make<ConstantUtf8Info>(&myArena, chars, length, &myArena);
    entry->setLog(&myTexts);
    return appendEntry(entry);
}

int ClassPool::findOrCreateConstantClass(int nameIndex) {
    KZT_ASSERT(nameIndex >= 1);
    int index = myIndex.findClass(myConstantPool, myTexts.edits, nameIndex);
    return index > 0 ? noteFound(index) : appendEntry(ConstantPoolInfo::make<ConstantClassInfo>(&myArena, nameIndex));
}

int ClassPool::findOrCreateStringInfo(const ZString& value) {
    int utf8 = findOrCreateUtf8(value);
    int index = myIndex.findString(myConstantPool, myTexts.edits, utf8);
    return index > 0 ? noteFound(index) : appendEntry(ConstantPoolInfo::make<ConstantStringInfo>(&myArena, utf8));
}

int ClassPool::findOrCreateNameAndType(int nameIndex, int descriptorIndex) {
    KZT_ASSERT(nameIndex >= 1);
    KZT_ASSERT(descriptorIndex >= 1);
    int index = myIndex.findNameAndType(myConstantPool, myTexts.edits, nameIndex, descriptorIndex);
    if (index > 0) return noteFound(index);
    return appendEntry(ConstantPoolInfo::make<ConstantNameAndTypeInfo>(&myArena, nameIndex, descriptorIndex));
}

int ClassPool::findOrCreateMethodRef(int classIndex, int nameIndex, int descriptorIndex) {
    KZT_ASSERT(classIndex >= 1);
    int nameAndType = findOrCreateNameAndType(nameIndex, descriptorIndex);
    int index = myIndex.findMethodRef(myConstantPool, myTexts.edits, classIndex, nameAndType);
    if (index > 0) return noteFound(index);
    return appendEntry(ConstantPoolInfo::make<ConstantMethodRefInfo>(&myArena, classIndex, nameAndType));
}

int ClassPool::findOrCreateIntInfo(int value) {
    int index = myIndex.findInteger(myConstantPool, myTexts.edits, value);
    if (index > 0) return noteFound(index);
    return appendEntry(ConstantPoolInfo::make<ConstantIntInfo>(&myArena, value));
}

int ClassPool::findOrCreateLongInfo(long long value) {
    int index = myIndex.findLong(myConstantPool, myTexts.edits, value);
    if (index > 0) return noteFound(index);
    index = appendEntry(ConstantPoolInfo::make<ConstantLongInfo>(&myArena, value));
    appendEntry(nullptr);
    return index;
}

// ---- pool patching ----

void ClassPool::patchConstantPool(const ZVectorSafe<ZString>& from, const ZVectorSafe<ZString>& to) {
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

