// One class file in memory: bytes in, edits, bytes out. Everything below the
// ClassFile belongs to it. The toolkit is no verifier: it checks only what it
// needs to keep its own structures sound, and every such check is an
// assertion (KZTRuntimeException) that leaves the caller's class untouched.
#pragma once

#include "classfile/Attributes.h"
#include "classfile/CodeAttribute.h"
#include "classfile/ConstantPool.h"
#include "classfile/ConstantPoolIndex.h"
#include "classfile/DataInput.h"
#include "classfile/DataOutput.h"
#include "classfile/MethodInfo.h"
#include "foundation/ZMap.h"
#include "foundation/ZStringSet.h"

class ClassFile {
public:
    // Parses the bytes. A pool tag the toolkit does not know leaves the
    // class invalid (see isInvalid) with everything after the pool unread.
    explicit ClassFile(DataInput& in) : ClassFile(in, false) {}
    // With `borrowBytes` the bytes that `in` reads must outlive the class:
    // it reads and keeps views into them instead of a copy of its own.
    ClassFile(DataInput& in, bool borrowBytes);
    ~ClassFile();
    ClassFile(const ClassFile&) = delete;
    ClassFile& operator=(const ClassFile&) = delete;

    // Writes the class. Constants that parsing added for expanded frames and
    // that no written byte refers to are left out, so an unedited class keeps
    // its pool. The caller checks the pool size against the format's limit.
    void writeClass(DataOutput& out);

    bool isInvalid() const { return myInvalid; }
    int getMagic() const { return myMagic; }
    int getMajorVersion() const { return myMajorVersion; }
    // For code that needs a newer format, e.g. `ldc` of a class (49).
    void setMajorVersion(int version) { myMajorVersion = version; }
    int getMinorVersion() const { return myMinorVersion; }
    int getAccessFlags() const { return myAccessFlags; }
    int getThisClass() const { return myThisClass; }
    int getSuperClass() const { return mySuperClass; }
    // Entries are added only through the findOrCreate functions and never
    // replaced; a Utf8 text changes only through its setValue.
    ConstantPool* getConstantPool() { return &myConstantPool; }
    ZVector<MethodInfo*, 10>& getMethods() { return myMethods; }
    ZVector<FieldInfo*, 10>& getFields() { return myFields; }
    ZVector<AttributeInfo*, 10>& getAttributes() { return myAttributes; }
    ZStringSet& getLoggedSkips() { return myLoggedSkips; }

    // The internal name of this class ("java/lang/Object").
    const ZString& getSignature() const;
    // Null when there is no super class.
    const ZString* getSuperClassSignature() const;
    // The name of the Class entry at `index`.
    const ZString& getConstantClassSignature(int index) const;
    // The "SourceFile" text, else empty.
    ZString getSourceName() const;
    bool hasInterfaces() const { return myInterfaceCount > 0; }
    int getInterfaceCount() const { return myInterfaceCount; }
    int getInterface(int i) const;
    bool hasDirectInterface(const ZString& name) const;
    // An annotation of the class whose type descriptor matches the wildcard
    // pattern ("Lcom/acme/*;"); an empty pattern always matches.
    bool hasMatchingAnnotation(const ZString& pattern) {
        return AnnotationsAttribute::hasMatchingAnnotation(pattern, myAttributes, &myConstantPool);
    }
    void fillInnerClassNames(ZVectorSafe<ZString>& names) const;

    MethodInfo* findMethod(const ZString& name, const ZString& descriptor) const;
    MethodInfo* findFirstMethod(const ZString& name, bool* multiple) const;
    // Index in the methods of the method with that name and descriptor; a
    // bare method with these access flags is added when there is none.
    int findOrCreateMethod(const ZString& name, const ZString& descriptor, int access);

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
    // Removes the template methods named "$$...$$" and blanks their names.
    void removeUnusedMacroMethods();

private:
    void parse(DataInput& in, bool borrowBytes);
    void release();
    int appendEntry(ConstantPoolInfo* entry);
    // An index found among the constants that parsing added is needed now.
    int noteFound(int index);

    // Holds the pool entries; declared first so that it goes last.
    ClassArena myArena;
    int myMagic;
    int myMajorVersion;
    int myMinorVersion;
    int myAccessFlags;
    int myThisClass;
    int mySuperClass;
    int myInterfaceCount;
    int* myInterfaces;
    ConstantPool myConstantPool;
    ZVector<FieldInfo*, 10> myFields;
    ZVector<MethodInfo*, 10> myMethods;
    ZVector<AttributeInfo*, 10> myAttributes;
    // Constants by content, for the findOrCreate functions.
    ConstantPoolIndex myIndex;
    ZStringSet myLoggedSkips;
    bool myInvalid;

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
