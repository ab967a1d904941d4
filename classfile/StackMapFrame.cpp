#include "classfile/StackMapFrame.h"

#include "foundation/Failure.h"
#include "classfile/ClassPool.h"
#include "classfile/MemberHeader.h"

StackMapFrame::StackMapFrame(ClassPool* classPool, const MemberHeader& method) : myOffset(-1) {
    const ConstantPool* pool = classPool->getConstantPool();
    if (!method.isStatic()) {
        int thisClass = classPool->getThisClass();
        // Never true, as the signature is an internal name; harmless, since
        // java/lang/Object has no superclass constructor to call.
        int nameIndex = static_cast<ConstantClassInfo*>(ConstantPoolInfo::getEntry(pool, thisClass, ConstantPoolInfo::CLASS))
                            ->getNameIndex();
        bool isObject = ConstantPoolInfo::getUtf8Entry(pool, nameIndex)->equals("Ljava/lang/Object;", 18);
        if (ConstantPoolInfo::getUtf8Entry(pool, method.getNameIndex())->equals("<init>", 6) && !isObject) {
            myLocals.push(VerificationType(VerificationType::UNINITIALIZED_THIS, thisClass));
        } else {
            myLocals.push(VerificationType(VerificationType::OBJECT, thisClass));
        }
    }
    const ConstantUtf8Info* descriptor = ConstantPoolInfo::getUtf8Entry(pool, method.getDescriptorIndex());
    const char* chars = descriptor->getChars();
    int length = descriptor->getByteLength();
    KZT_ASSERT(length > 0 && chars[0] == '(');
    int at = 1;
    while (at < length && chars[at] != ')') {
        int end = VerificationType::skipFieldDescriptor(chars, length, at);
        myLocals.push(VerificationType(chars + at, end - at, classPool));
        at = end;
    }
    KZT_ASSERT(at < length);
}

StackMapFrame::StackMapFrame(const StackMapFrame& previous, DataInput& in, int thisClass) : myLocals(previous.myLocals) {
    int type = in.readUnsignedByte();
    int delta;
    if (type < 64) {
        delta = type;
    } else if (type < 128) {
        delta = type - 64;
        myStack.push(VerificationType::read(in, thisClass));
    } else {
        KZT_ASSERT(type >= 247);
        delta = in.readUnsignedShort();
        if (type == 247) {
            myStack.push(VerificationType::read(in, thisClass));
        } else if (type < 251) {
            int chop = 251 - type;
            KZT_ASSERT(chop <= myLocals.getSize());
            myLocals.removeRange(myLocals.getSize() - chop, myLocals.getSize());
        } else if (type < 255) {
            for (int i = 251; i < type; i++) myLocals.push(VerificationType::read(in, thisClass));
        } else if (type == 255) {
            myLocals.clear();
            int count = in.readUnsignedShort();
            for (int i = 0; i < count; i++) myLocals.push(VerificationType::read(in, thisClass));
            count = in.readUnsignedShort();
            for (int i = 0; i < count; i++) myStack.push(VerificationType::read(in, thisClass));
        }
    }
    myOffset = delta + previous.myOffset + 1;
}

StackMapFrame::StackMapFrame(const StackMapFrame& base, int offset, const VerificationType& stackItem, int superOffset)
    : myOffset(offset), myLocals(base.myLocals) {
    if (superOffset != -1 && offset > superOffset) {
        for (int i = 0; i < myLocals.getSize(); i++) {
            if (myLocals[i].getTag() == VerificationType::UNINITIALIZED_THIS) myLocals[i].setTag(VerificationType::OBJECT);
        }
    }
    if (stackItem.getTag() != VerificationType::TOP) myStack.push(stackItem);
}

static void writeItems(DataOutput& out, const VerificationTypes& items, int from) {
    for (int i = from; i < items.getSize(); i++) items[i].writeTo(out);
}

void StackMapFrame::writeTo(const StackMapFrame& previous, DataOutput& out) const {
    int delta = myOffset - previous.myOffset;
    KZT_ASSERT(delta >= 1);
    int od = delta - 1;
    int stackSize = myStack.getSize();
    if (stackSize == 1 && VerificationType::compare(myLocals, previous.myLocals) == 0) {
        if (od + 64 < 128) {
            out.writeUnsignedByte(od + 64);
        } else {
            out.writeUnsignedByte(247);
            out.writeUnsignedShort(od);
        }
        myStack[0].writeTo(out);
        return;
    }
    if (stackSize == 0) {
        int d = VerificationType::compare(myLocals, previous.myLocals);
        if (d == 0) {
            if (delta < 65) {
                out.writeUnsignedByte(od);
            } else {
                out.writeUnsignedByte(251);
                out.writeUnsignedShort(od);
            }
            return;
        }
        if (d >= 1 && d <= 3) {
            out.writeUnsignedByte(251 + d);
            out.writeUnsignedShort(od);
            writeItems(out, myLocals, myLocals.getSize() - d);
            return;
        }
        if (d >= -3 && d <= -1) {
            out.writeUnsignedByte(251 + d);
            out.writeUnsignedShort(od);
            return;
        }
    }
    out.writeUnsignedByte(255);
    out.writeUnsignedShort(od);
    out.writeUnsignedShort(myLocals.getSize());
    writeItems(out, myLocals, 0);
    out.writeUnsignedShort(stackSize);
    writeItems(out, myStack, 0);
}

int StackMapFrame::getLocalSlots() const {
    int slots = 0;
    for (int i = 0; i < myLocals.getSize(); i++) slots += myLocals[i].getSize();
    return slots;
}

void StackMapFrame::addLocalVariables(const VerificationTypes& added, int maxLocals) {
    int firstNewSlot = maxLocals;
    for (int i = 0; i < added.getSize(); i++) firstNewSlot -= added[i].getSize();
    for (int slots = getLocalSlots(); slots < firstNewSlot; slots++) myLocals.push(VerificationType());
    for (int i = 0; i < added.getSize(); i++) myLocals.push(added[i]);
    cleanUpLocals();
}

void StackMapFrame::cleanUpLocals() {
    int size = myLocals.getSize();
    while (size > 0 && myLocals[size - 1].getTag() == VerificationType::TOP) size--;
    myLocals.removeRange(size, myLocals.getSize());
}

void StackMapFrame::toSlots(const VerificationTypes& entries, VerificationTypes& slots) {
    slots.clear();
    for (int i = 0; i < entries.getSize(); i++) {
        slots.push(entries[i]);
        if (entries[i].isWide()) slots.push(VerificationType());
    }
}
