// One item of a stack map frame: a tag and, for some tags, a number.
#pragma once

#include "classfile/DataInput.h"
#include "classfile/DataOutput.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class ClassPool;

class VerificationType {
public:
    enum {
        TOP = 0, INTEGER = 1, FLOAT = 2, DOUBLE = 3, LONG = 4, NULL_TYPE = 5,
        UNINITIALIZED_THIS = 6,  // data: this class's pool index, kept in memory only
        OBJECT = 7,              // data: pool index of a Class entry
        UNINITIALIZED = 8        // data: offset of the `new` instruction
    };

    VerificationType() : myTag(TOP), myData(-1) {}
    // Data must be at least 0 for tags 6, 7 and 8; it is -1 for all others.
    VerificationType(int tag, int data);
    // From a field descriptor; object and array types find or add their
    // Class constant.
    VerificationType(const ZString& descriptor, ClassPool* pool);
    VerificationType(const char* descriptor, int length, ClassPool* pool);
    // The end of the field descriptor that starts at `at` in `chars`.
    static int skipFieldDescriptor(const char* chars, int length, int at);

    int getTag() const { return myTag; }
    int getData() const { return myData; }
    void setTag(int tag) { myTag = tag; }
    void setData(int data) { myData = data; }
    // Long and Double take two slots of locals.
    bool isWide() const { return myTag == DOUBLE || myTag == LONG; }
    // Slots taken: 2 for Long and Double, else 1.
    int getSize() const { return isWide() ? 2 : 1; }

    // Reads one item; an UninitializedThis takes `thisClass` as its data.
    static VerificationType read(DataInput& in, int thisClass);
    void writeTo(DataOutput& out) const;

    // Equal tags, and for Object and Uninitialized equal data.
    static bool isSameType(const VerificationType& a, const VerificationType& b);
    // The size difference of a and b, or 104 when their common prefix holds a
    // different type. A size difference outside -4..4, or a smaller side
    // that is empty, is returned without looking at the types.
    static int compare(const ZVector<VerificationType, 10>& a, const ZVector<VerificationType, 10>& b);

private:
    int myTag;
    int myData;
};

typedef ZVector<VerificationType, 10> VerificationTypes;
