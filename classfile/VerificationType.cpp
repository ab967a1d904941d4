#include "classfile/VerificationType.h"

#include "foundation/Failure.h"
#include "classfile/ClassPool.h"

VerificationType::VerificationType(int tag, int data) : myTag(tag), myData(-1) {
    KZT_ASSERT(tag >= TOP && tag <= UNINITIALIZED);
    if (tag >= UNINITIALIZED_THIS) {
        KZT_ASSERT(data >= 0);
        myData = data;
    }
}

VerificationType::VerificationType(const ZString& descriptor, ClassPool* pool)
    : VerificationType(descriptor.c_str(), descriptor.getLength(), pool) {}

VerificationType::VerificationType(const char* descriptor, int length, ClassPool* pool) : myTag(TOP), myData(-1) {
    int first = length > 0 ? (unsigned char)descriptor[0] : 0;
    switch (first) {
    case 'B': case 'C': case 'I': case 'S': case 'Z':
        myTag = INTEGER;
        return;
    case 'D':
        myTag = DOUBLE;
        return;
    case 'F':
        myTag = FLOAT;
        return;
    case 'J':
        myTag = LONG;
        return;
    case 'V':
        myTag = TOP;
        return;
    case 'L':
        KZT_ASSERT(length >= 3 && descriptor[length - 1] == ';');
        myTag = OBJECT;
        myData = pool->findOrCreateConstantClass(pool->findOrCreateUtf8(descriptor + 1, length - 2));
        return;
    case '[':
        myTag = OBJECT;
        myData = pool->findOrCreateConstantClass(pool->findOrCreateUtf8(descriptor, length));
        return;
    default: {
        ZString text("unexpected java type: ");
        text.appendLong(first);
        failFatal(text.c_str(), __FILE__, __LINE__);
    }
    }
}

VerificationType VerificationType::read(DataInput& in, int thisClass) {
    int tag = in.readUnsignedByte();
    KZT_ASSERT(tag <= UNINITIALIZED);
    if (tag == UNINITIALIZED_THIS) return VerificationType(tag, thisClass);
    if (tag == OBJECT || tag == UNINITIALIZED) return VerificationType(tag, in.readUnsignedShort());
    return VerificationType(tag, -1);
}

void VerificationType::writeTo(DataOutput& out) const {
    out.writeUnsignedByte(myTag);
    if (myTag == OBJECT) {
        out.writeUnsignedShort(myData);
        out.notePoolReference(myData);
    } else if (myTag == UNINITIALIZED) {
        out.writeUnsignedShort(myData);
    }
}

bool VerificationType::isSameType(const VerificationType& a, const VerificationType& b) {
    if (a.myTag != b.myTag) return false;
    if (a.myTag == OBJECT || a.myTag == UNINITIALIZED) return a.myData == b.myData;
    return true;
}

int VerificationType::compare(const VerificationTypes& a, const VerificationTypes& b) {
    int n = a.getSize() - b.getSize();
    int smaller = n < 0 ? a.getSize() : b.getSize();
    if (n < -4 || n > 4 || smaller < 1) return n;
    const VerificationType* x = a.getElements();
    const VerificationType* y = b.getElements();
    for (int i = 0; i < smaller; i++) {
        if (!isSameType(x[i], y[i])) return 104;
    }
    return n;
}

int VerificationType::skipFieldDescriptor(const char* chars, int length, int at) {
    while (at < length && chars[at] == '[') at++;
    KZT_ASSERT(at < length);
    if (chars[at] != 'L') return at + 1;
    while (at < length && chars[at] != ';') at++;
    KZT_ASSERT(at < length);
    return at + 1;
}
