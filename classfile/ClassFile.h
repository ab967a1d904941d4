// One class file in memory: bytes in, edits, bytes out. Everything below the
// ClassFile belongs to it. The toolkit is no verifier: it checks only what it
// needs to keep its own structures sound, and every such check is an
// assertion (KZTRuntimeException) that leaves the caller's class untouched.
#pragma once

#include "classfile/Attributes.h"
#include "classfile/ClassPool.h"
#include "classfile/CodeAttribute.h"
#include "classfile/MethodInfo.h"
#include "foundation/ZMap.h"
#include "foundation/ZStringSet.h"

class ClassFile : public ClassPool {
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

    int getMagic() const { return myMagic; }
    int getAccessFlags() const { return myAccessFlags; }
    int getSuperClass() const { return mySuperClass; }
    ZVector<MethodInfo*, 10>& getMethods() { return myMethods; }
    ZVector<FieldInfo*, 10>& getFields() { return myFields; }
    ZVector<AttributeInfo*, 10>& getAttributes() { return myAttributes; }
    ZStringSet& getLoggedSkips() { return myLoggedSkips; }

    // The internal name of this class ("java/lang/Object").
    const ZString& getSignature() const;
    // Null when there is no super class.
    const ZString* getSuperClassSignature() const;
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

    // Removes the template methods named "$$...$$" and blanks their names.
    void removeUnusedMacroMethods();

private:
    void parse(DataInput& in, bool borrowBytes);
    void release();

    int myMagic;
    int myAccessFlags;
    int mySuperClass;
    int myInterfaceCount;
    int* myInterfaces;
    ZVector<FieldInfo*, 10> myFields;
    ZVector<MethodInfo*, 10> myMethods;
    ZVector<AttributeInfo*, 10> myAttributes;
    ZStringSet myLoggedSkips;
};
