// The constant pool side of a class file: its entries as read and as added,
// the lookups that find an equal constant or append one, and the two facts
// about the class that code-level parts need (its own Class entry and its
// version). Methods, code and frames see a class through this; the
// ClassFile built on it adds the members.
#pragma once

#include <cstring>

#include "classfile/ClassArena.h"
#include "classfile/ConstantPool.h"
#include "classfile/ConstantPoolIndex.h"
#include "classfile/DataInput.h"
#include "classfile/DataOutput.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class ClassPool {
public:
    ClassPool(const ClassPool&) = delete;
    ClassPool& operator=(const ClassPool&) = delete;

    bool isInvalid() const { return myInvalid; }
    int getMajorVersion() const { return myMajorVersion; }
    // For code that needs a newer format, such as `ldc` of a class (49).
    void setMajorVersion(int version) { myMajorVersion = version; }
    int getMinorVersion() const { return myMinorVersion; }
    int getThisClass() const { return myThisClass; }
    // Entries are added only through the findOrCreate functions and never
    // replaced; a Utf8 text changes only through its setValue.
    ConstantPool* getConstantPool() { return &myConstantPool; }
    // The name of the Class entry at `index`.
    const ZString& getConstantClassSignature(int index) const;

    // Pool index of an equal entry, appended when there is none.
    int findOrCreateUtf8(const ZString& value);
    int findOrCreateUtf8(const char* text) { return findOrCreateUtf8(text, (int)strlen(text)); }
    int findOrCreateUtf8(const char* chars, int length);
    int findOrCreateConstantClass(int nameIndex);
    int findOrCreateNameAndType(int nameIndex, int descriptorIndex);
    int findOrCreateMethodRef(int classIndex, int nameIndex, int descriptorIndex);
    int findOrCreateStringInfo(const ZString& value);
    int findOrCreateIntInfo(int value);
    int findOrCreateLongInfo(long long value);

    // Replaces, pair by pair, every occurrence of from[i] by to[i] in every
    // Utf8 entry: class names, descriptors and strings alike.
    void patchConstantPool(const ZVectorSafe<ZString>& from, const ZVectorSafe<ZString>& to);

protected:
    ClassPool();
    ~ClassPool() {}

    // Reads the versions and the pool from `in`, positioned behind the magic.
    // An unknown tag leaves the pool invalid and returns false.
    bool readPool(DataInput& in);
    // After the whole class is read: what parsing added to the pool from here
    // on is provisional.
    void endParsing();
    // Writes the versions and the pool; endPool, once the rest of the class
    // is written, drops the provisional constants that nothing written uses.
    struct PoolMarks {
        int countAt;
        int provisionalAt;
        int poolEnd;
        int outerHighest;
    };
    PoolMarks writePool(DataOutput& out);
    void endPool(DataOutput& out, const PoolMarks& marks);
    // Forgets every entry and gives back the arena: last, after the members.
    void releasePool();

    // Holds the pool entries and the members; declared first so that it goes last.
    ClassArena myArena;
    int myMajorVersion;
    int myMinorVersion;
    int myThisClass;
    ConstantPool myConstantPool;
    bool myInvalid;

private:
    int appendEntry(ConstantPoolInfo* entry);
    // An index found among the constants that parsing added is needed now.
    int noteFound(int index);

    // Constants by content, for the findOrCreate functions.
    ConstantPoolIndex myIndex;
    // Pool bookkeeping for writing unedited classes back unchanged: the size
    // as read, the size once parsing was done, and whether anything past the
    // first is in use.
    int myParsedPoolSize;
    int myProvisionalPoolSize;
    bool myProvisionalUsed;
    bool myParsing;
    // The pool as read, written back in one piece while no entry changed.
    const unsigned char* myPoolBytes;
    int myPoolByteLength;
    ConstantTextLog myTexts;
};
