#include "classfile/CodeAttribute.h"

#include "foundation/Failure.h"
#include "classfile/ClassPool.h"

// The tables that only code has.
static AttributeInfo* makeCodeAttribute(const ConstantUtf8Info* name, DataInput& in, ConstantPool* pool, int nameIndex,
                                        int length, ClassArena* arena) {
    if (name->equals("LineNumberTable", 15)) return new (arena) LineNumberTableAttribute(in, nameIndex, length);
    if (name->equals("LocalVariableTable", 18)) return new (arena) LocalVariableTableAttribute(in, pool, nameIndex, length);
    if (name->equals("LocalVariableTypeTable", 22)) {
        return new (arena) LocalVariableTypeTableAttribute(in, pool, nameIndex, length);
    }
    return nullptr;
}

CodeAttribute::CodeAttribute(DataInput& in, ConstantPool* pool, int nameIndex, int length, ClassArena* arena)
    : AttributeInfo(CODE, nameIndex, length), myMaxStack(0), myMaxLocals(0), myCodeLength(0), myCode(nullptr),
      myCodeInArena(false), myConstantPool(pool), myArena(arena), myStackMapNameIndex(0), myStackMapsEnabled(false),
      myHighestPoolReference(0) {
    try {
        myMaxStack = in.readUnsignedShort();
        myMaxLocals = in.readUnsignedShort();
        int codeLength = in.readInt();
        KZT_ASSERT(codeLength >= 1 && codeLength <= 65535);
        in.peek(codeLength);
        myCodeInArena = arena != nullptr;
        myCode = myCodeInArena ? (unsigned char*)arena->allocate(codeLength) : new unsigned char[codeLength];
        myCodeLength = codeLength;
        in.readFully(myCode, codeLength);
        int count = in.readUnsignedShort();
        for (int i = 0; i < count; i++) {
            int start = in.readUnsignedShort();
            int end = in.readUnsignedShort();
            int handler = in.readUnsignedShort();
            int type = in.readUnsignedShort();
            KZT_ASSERT(end > start);
            myExceptionTable.push(new (arena) ExceptionTableElement(start, end, handler, type));
        }
        AttributeInfo::readAll(in, pool, myAttributes, arena, makeCodeAttribute);
    } catch (...) {
        release();
        throw;
    }
}

CodeAttribute::CodeAttribute(ConstantPool* pool, int nameIndex, ClassArena* arena)
    : AttributeInfo(CODE, nameIndex, 13), myMaxStack(0), myMaxLocals(0), myCodeLength(1), myCode(new unsigned char[1]),
      myCodeInArena(false), myConstantPool(pool), myArena(arena), myStackMapNameIndex(0), myStackMapsEnabled(false),
      myHighestPoolReference(0) {
    myCode[0] = 177;  // return
}

CodeAttribute::~CodeAttribute() { release(); }

void CodeAttribute::freeCode() {
    if (!myCodeInArena) delete[] myCode;
    myCode = nullptr;
    myCodeInArena = false;
}

void CodeAttribute::release() {
    freeCode();
    myCodeLength = 0;
    for (int i = 0; i < myExceptionTable.getSize(); i++) delete myExceptionTable[i];
    myExceptionTable.clear();
    AttributeInfo::deleteAll(myAttributes);
    deleteFrames();
}

void CodeAttribute::deleteFrames() {
    for (int i = 0; i < myFrames.getSize(); i++) delete myFrames[i];
    myFrames.clear();
}

void CodeAttribute::writeTo(DataOutput& out) { writeBody(out, 0); }

void CodeAttribute::writeBody(DataOutput& out, int extraAttributes) {
    out.writeUnsignedShort(myMaxStack);
    out.writeUnsignedShort(myMaxLocals);
    out.writeInt(myCodeLength);
    out.write(myCode, myCodeLength);
    int count = myExceptionTable.getSize();
    unsigned char* p = out.reserve(2 + 8 * count);
    DataOutput::putU2(p, count);
    p += 2;
    for (int i = 0; i < count; i++, p += 8) {
        const ExceptionTableElement* e = myExceptionTable[i];
        DataOutput::putU2(p, e->startPc);
        DataOutput::putU2(p + 2, e->endPc);
        DataOutput::putU2(p + 4, e->handlerPc);
        DataOutput::putU2(p + 6, e->catchType);
    }
    out.writeUnsignedShort(myAttributes.getSize() + extraAttributes);
    for (int i = 0; i < myAttributes.getSize(); i++) myAttributes[i]->write(out);
}

void CodeAttribute::writeWithStackMapTable(DataOutput& out) {
    myHighestPoolReference = 0;
    if (!hasFramesToWrite()) {
        write(out);
        return;
    }
    out.writeUnsignedShort(myAttributeNameIndex);
    int lengthAt = out.getSize();
    out.writeInt(0);
    writeBody(out, 1);
    out.writeUnsignedShort(myStackMapNameIndex);
    int tableLengthAt = out.getSize();
    out.writeInt(0);
    int outerHighest = out.getHighestPoolReference();
    out.setHighestPoolReference(myStackMapNameIndex);
    encodeFrames(out);
    myHighestPoolReference = out.getHighestPoolReference();
    out.notePoolReference(outerHighest);
    int tableLength = out.getSize() - tableLengthAt - 4;
    out.patchInt(tableLengthAt, tableLength);
    out.patchInt(lengthAt, myAttributeLength + 6 + tableLength);
}

void CodeAttribute::encodeFrames(DataOutput& out) {
    out.writeUnsignedShort(myFrames.getSize() - 1);
    for (int i = 1; i < myFrames.getSize(); i++) myFrames[i]->writeTo(*myFrames[i - 1], out);
}

void CodeAttribute::setCode(const unsigned char* bytes, int length) {
    KZT_ASSERT_NOT_NULL(bytes);
    KZT_ASSERT(length >= 1);
    unsigned char* copy = new unsigned char[length];
    memcpy(copy, bytes, length);
    adoptCode(copy, length);
}

void CodeAttribute::adoptCode(unsigned char* bytes, int length) {
    KZT_ASSERT_NOT_NULL(bytes);
    KZT_ASSERT(length >= 1);
    setAttributeLength(myAttributeLength + length - myCodeLength);
    freeCode();
    myCode = bytes;
    myCodeLength = length;
}

unsigned char* CodeAttribute::allocateCodeBuffer(int length) {
    KZT_ASSERT(length >= 1);
    unsigned char* bytes = myArena != nullptr ? (unsigned char*)myArena->allocate(length) : new unsigned char[length];
    memset(bytes, 0, length);
    return bytes;
}

void CodeAttribute::adoptCodeBuffer(unsigned char* bytes, int length) {
    adoptCode(bytes, length);
    myCodeInArena = myArena != nullptr;
}

static int capped(int value) { return value > CodeAttribute::MAX_VALUE ? CodeAttribute::MAX_VALUE : value; }

void CodeAttribute::incMaxLocalsCount(int n) { myMaxLocals = capped(myMaxLocals + n); }

void CodeAttribute::incMaxStackCount(int n) { myMaxStack = capped(myMaxStack + n); }

void CodeAttribute::ensureStackCapacity(int n) {
    if (n > myMaxStack) myMaxStack = capped(n);
}

AttributeInfo* CodeAttribute::findAttribute(const char* name) {
    for (int i = 0; i < myAttributes.getSize(); i++) {
        if (myAttributes[i]->getName(myConstantPool).equals(name)) return myAttributes[i];
    }
    return nullptr;
}

static AttributeInfo* findByKind(ZVector<AttributeInfo*, 10>& attributes, AttributeInfo::Kind kind) {
    for (int i = 0; i < attributes.getSize(); i++) {
        if (attributes[i]->getKind() == kind) return attributes[i];
    }
    return nullptr;
}

LocalVariableTableAttribute* CodeAttribute::getLocalVariableTable() {
    return static_cast<LocalVariableTableAttribute*>(findByKind(myAttributes, LOCAL_VARIABLE_TABLE));
}

LocalVariableTableAttribute* CodeAttribute::getLocalVariableTypeTable() {
    return static_cast<LocalVariableTableAttribute*>(findByKind(myAttributes, LOCAL_VARIABLE_TYPE_TABLE));
}

LineNumberTableAttribute* CodeAttribute::getLineNumberTable() {
    return static_cast<LineNumberTableAttribute*>(findByKind(myAttributes, LINE_NUMBER_TABLE));
}

void CodeAttribute::removeAttributes(const char* name) {
    int kept = 0;
    for (int i = 0; i < myAttributes.getSize(); i++) {
        AttributeInfo* a = myAttributes[i];
        if (a->getName(myConstantPool).equals(name)) {
            setAttributeLength(myAttributeLength - 6 - a->getAttributeLength());
            delete a;
        } else {
            myAttributes[kept++] = a;
        }
    }
    myAttributes.removeRange(kept, myAttributes.getSize());
}

// ---- exception table ----

int CodeAttribute::findHandlerIndexForInstruction(int pc) const {
    for (int i = 0; i < myExceptionTable.getSize(); i++) {
        const ExceptionTableElement* e = myExceptionTable[i];
        if (e->startPc <= pc && e->endPc > pc) return e->handlerPc;
    }
    return -1;
}

VerificationTypes* CodeAttribute::getKnownTypesForExceptionHandler(int handlerPc) const {
    if (handlerPc < 1) return nullptr;
    VerificationTypes* known = new VerificationTypes();
    for (int i = 0; i < myFrames.getSize(); i++) {
        if (myFrames[i]->getOffset() == handlerPc) {
            *known = myFrames[i]->getLocals();
            break;
        }
    }
    return known;
}

void CodeAttribute::wipe(StackMapFrame* frame) const {
    VerificationTypes& locals = frame->getLocals();
    VerificationTypes wiped;
    for (int i = 0; i < locals.getSize(); i++) {
        if (myPreservedVariables.contains(i)) {
            wiped.push(locals[i]);
        } else {
            wiped.push(VerificationType());
            if (locals[i].isWide()) wiped.push(VerificationType());
        }
    }
    locals = wiped;
}

void CodeAttribute::addExceptionHandler(int start, int end, int handler, const VerificationType& exceptionType,
                                        int superOffset) {
    KZT_ASSERT(start >= 0);
    KZT_ASSERT(end > start);
    KZT_ASSERT(handler >= 0);
    ExceptionTableElement* added = new (myArena) ExceptionTableElement(start, end, handler, 0);
    myExceptionTable.push(added);
    setAttributeLength(myAttributeLength + 8);

    if (myStackMapsEnabled) {
        KZT_ASSERT(myFrames.getSize() > 0);
        ZVector<StackMapFrame*, 10> frames;
        int i = 0;
        while (i < myFrames.getSize() && myFrames[i]->getOffset() < handler) frames.push(myFrames[i++]);
        StackMapFrame* frame = new (myArena) StackMapFrame(*myFrames[0], handler, exceptionType, superOffset);
        wipe(frame);
        frames.push(frame);
        while (i < myFrames.getSize()) frames.push(myFrames[i++]);
        myFrames = frames;
    }

    if (start == 0 || myExceptionTable.getSize() == 1) return;
    for (int i = 0; i < myExceptionTable.getSize(); i++) {
        ExceptionTableElement* e = myExceptionTable[i];
        if (e->startPc <= start && e->endPc >= end) {
            myExceptionTable.pop();
            myExceptionTable.push(nullptr);
            for (int j = myExceptionTable.getSize() - 1; j > i; j--) myExceptionTable[j] = myExceptionTable[j - 1];
            myExceptionTable[i] = added;
            return;
        }
    }
}

void CodeAttribute::incExceptionHandlerIndex(int startLimit, int delta) {
    KZT_ASSERT(delta >= 0);
    for (int i = 0; i < myExceptionTable.getSize(); i++) {
        ExceptionTableElement* e = myExceptionTable[i];
        if (e->startPc > startLimit) continue;
        if (myStackMapsEnabled) {
            StackMapFrame* frame = nullptr;
            for (int f = 0; f < myFrames.getSize() && frame == nullptr; f++) {
                if (myFrames[f]->getOffset() == e->handlerPc) frame = myFrames[f];
            }
            KZT_ASSERT_NOT_NULL(frame);
            frame->setOffset(frame->getOffset() + delta);
        }
        e->endPc += delta;
        e->handlerPc += delta;
    }
}

int CodeAttribute::getCorrectExceptionHandlerIndex(int pc) const {
    int best = -1;
    for (int i = 0; i < myExceptionTable.getSize(); i++) {
        const ExceptionTableElement* e = myExceptionTable[i];
        if (e->startPc < pc && e->endPc > pc && (best < 0 || e->endPc < best)) best = e->endPc;
    }
    return best < 0 ? myCodeLength : best;
}

// ---- moving tables ----

static int mapped(const int* map, int offset, int oldLength) {
    KZT_ASSERT(offset >= 0 && offset < oldLength);
    return map[offset];
}

void CodeAttribute::remapOffsets(const int* blockMap, const int* instructionMap, int oldLength) {
    KZT_ASSERT_NOT_NULL(blockMap);
    KZT_ASSERT_NOT_NULL(instructionMap);
    for (int i = 0; i < myExceptionTable.getSize(); i++) {
        ExceptionTableElement* e = myExceptionTable[i];
        e->startPc = mapped(blockMap, e->startPc, oldLength);
        e->endPc = e->endPc == oldLength ? myCodeLength : mapped(blockMap, e->endPc, oldLength);
        e->handlerPc = mapped(blockMap, e->handlerPc, oldLength);
    }
    for (int i = 0; i < myAttributes.getSize(); i++) {
        AttributeInfo* a = myAttributes[i];
        if (a->getKind() == LINE_NUMBER_TABLE) {
            static_cast<LineNumberTableAttribute*>(a)->shiftLineNumbers(blockMap, oldLength);
        } else if ((a->getKind() == LOCAL_VARIABLE_TABLE || a->getKind() == LOCAL_VARIABLE_TYPE_TABLE)) {
            static_cast<LocalVariableTableAttribute*>(a)->remap(blockMap, blockMap, oldLength, myCodeLength);
        }
    }
    for (int f = 1; f < myFrames.getSize(); f++) {
        StackMapFrame* frame = myFrames[f];
        frame->setOffset(mapped(blockMap, frame->getOffset(), oldLength));
        VerificationTypes* lists[2] = {&frame->getLocals(), &frame->getStack()};
        for (VerificationTypes* list : lists) {
            for (VerificationType& t : *list) {
                if (t.getTag() == VerificationType::UNINITIALIZED) t.setData(mapped(instructionMap, t.getData(), oldLength));
            }
        }
    }
}

// ---- local variables ----

int CodeAttribute::addLocalVariableToTable(const VerificationType& type, bool keep) {
    int size = type.getSize();
    myMaxLocals = capped(myMaxLocals + size);
    if (myStackMapsEnabled) {
        if (keep) {
            myAddedVariables.push(type);
        } else {
            for (int i = 0; i < size; i++) myAddedVariables.push(VerificationType());
        }
    }
    return myMaxLocals - size;
}

void CodeAttribute::applyAddedVariables(int fromOffset) {
    if (myAddedVariables.isEmpty()) return;
    for (int f = 1; f < myFrames.getSize(); f++) {
        if (myFrames[f]->getOffset() >= fromOffset) myFrames[f]->addLocalVariables(myAddedVariables, myMaxLocals);
    }
    myAddedVariables.clear();
}

void CodeAttribute::rollbackAddedVariables() {
    for (int i = 0; i < myAddedVariables.getSize(); i++) {
        myMaxLocals -= myAddedVariables[i].getSize();
        if (myMaxLocals < 0) myMaxLocals = 0;
    }
    myAddedVariables.clear();
}

// ---- stack map frames ----

void CodeAttribute::parseStackMapTable(ClassPool* classPool, const MemberHeader& method) {
    myStackMapsEnabled = classPool->getMajorVersion() > 49;
    if (!myStackMapsEnabled) return;
    KZT_ASSERT(myFrames.isEmpty());
    myFrames.push(new (myArena) StackMapFrame(classPool, method));
    myStackMapNameIndex = classPool->findOrCreateUtf8("StackMapTable");
    AttributeInfo* table = findByKind(myAttributes, STACK_MAP_TABLE);
    if (table == nullptr) return;
    KZT_ASSERT(myFrames.getSize() == 1);
    StackMapTableAttribute* raw = static_cast<StackMapTableAttribute*>(table);
    DataInput in(raw->getBytes(), raw->getLength());
    int count = in.readUnsignedShort();
    int thisClass = classPool->getThisClass();
    for (int i = 0; i < count; i++) myFrames.push(new (myArena) StackMapFrame(*myFrames.peek(), in, thisClass));
    KZT_ASSERT(in.available() == 0);
    int kept = 0;
    for (int i = 0; i < myAttributes.getSize(); i++) {
        AttributeInfo* a = myAttributes[i];
        if (a->getKind() == STACK_MAP_TABLE) {
            setAttributeLength(myAttributeLength - 6 - a->getAttributeLength());
            delete a;
        } else {
            myAttributes[kept++] = a;
        }
    }
    myAttributes.removeRange(kept, myAttributes.getSize());
}

void CodeAttribute::addStackMapTableAttributeBeforeWrite() {
    myHighestPoolReference = 0;
    if (!hasFramesToWrite()) return;
    ZVector<unsigned char, 10> scratch(32);
    DataOutput out(scratch);
    out.notePoolReference(myStackMapNameIndex);
    encodeFrames(out);
    myAttributes.push(new StackMapTableAttribute(myStackMapNameIndex, scratch.getElements(), scratch.getSize()));
    setAttributeLength(myAttributeLength + scratch.getSize() + 6);
    myHighestPoolReference = out.getHighestPoolReference();
}

void CodeAttribute::addStackMapFrames(const ZVector<int, 10>& pcs, int base, const VerificationType& stackItem,
                                      int superOffset, bool wipeLocals, const VerificationTypes* known) {
    if (!myStackMapsEnabled || pcs.isEmpty()) return;
    KZT_ASSERT(myFrames.getSize() > 0);
    ZVector<StackMapFrame*, 10> frames;
    frames.push(myFrames[0]);
    int cursor = 1;
    for (int i = 0; i < pcs.getSize(); i++) {
        int target = pcs[i] + base;
        while (cursor < myFrames.getSize() && myFrames[cursor]->getOffset() <= target) frames.push(myFrames[cursor++]);
        StackMapFrame* last = frames.peek();
        if (last->getOffset() >= target) continue;
        StackMapFrame* frame = new (myArena) StackMapFrame(*last, target, stackItem, superOffset);
        if (known != nullptr) {
            frame->getLocals() = *known;
        } else if (wipeLocals) {
            wipe(frame);
        }
        frames.push(frame);
    }
    while (cursor < myFrames.getSize()) frames.push(myFrames[cursor++]);
    myFrames = frames;
}

void CodeAttribute::duplicateUninitializedStackMapFramesItem(int pc) {
    if (!myStackMapsEnabled) return;
    KZT_ASSERT(myFrames.getSize() > 0);
    for (int f = 0; f < myFrames.getSize(); f++) {
        VerificationTypes& stack = myFrames[f]->getStack();
        if (stack.isEmpty()) continue;
        VerificationType bottom = stack[0];
        if (bottom.getTag() != VerificationType::UNINITIALIZED || bottom.getData() != pc) continue;
        stack.push(bottom);
        for (int j = stack.getSize() - 1; j > 0; j--) stack[j] = stack[j - 1];
        stack[0] = bottom;
    }
}

bool CodeAttribute::tryRestoreWipedVariablesInStackMapTable(int superOffset) {
    if (myPreservedVariables.isEmpty() || !myStackMapsEnabled) return false;
    KZT_ASSERT(myFrames.getSize() > 0);
    if (myFrames.getSize() == 1) return false;

    VerificationTypes entryKnown;
    const VerificationTypes& initial = myFrames[0]->getLocals();
    for (int i = 0; i < initial.getSize(); i++) {
        bool preserved = myPreservedVariables.contains(i);
        entryKnown.push(preserved ? initial[i] : VerificationType());
        if (initial[i].isWide()) entryKnown.push(VerificationType());
    }

    bool result = false;
    VerificationTypes cur;
    VerificationTypes handlerKnown;
    for (int f = 1; f < myFrames.getSize(); f++) {
        StackMapFrame* frame = myFrames[f];
        StackMapFrame::toSlots(frame->getLocals(), cur);
        handlerKnown.clear();
        VerificationTypes* known = getKnownTypesForExceptionHandler(findHandlerIndexForInstruction(frame->getOffset()));
        if (known != nullptr) {
            StackMapFrame::toSlots(*known, handlerKnown);
            delete known;
        }
        int limit = handlerKnown.getSize() > entryKnown.getSize() ? handlerKnown.getSize() : entryKnown.getSize();
        VerificationTypes merged;
        bool changed = false;
        int j = 0;
        while (j < limit) {
            VerificationType chosen;
            if (j < cur.getSize() && cur[j].getTag() != VerificationType::TOP) {
                chosen = cur[j];
            } else if (j < entryKnown.getSize() && entryKnown[j].getTag() != VerificationType::TOP) {
                chosen = entryKnown[j];
                changed = true;
            } else if (j < handlerKnown.getSize() && handlerKnown[j].getTag() != VerificationType::TOP) {
                chosen = handlerKnown[j];
                changed = true;
            }
            merged.push(chosen);
            j += chosen.getSize();
        }
        if (!changed) continue;
        while (j < cur.getSize()) {
            merged.push(cur[j]);
            j += cur[j].getSize();
        }
        frame->getLocals() = merged;
        frame->cleanUpLocals();
        VerificationTypes& locals = frame->getLocals();
        if (superOffset >= 0 && !locals.isEmpty() && locals[0].getTag() == VerificationType::UNINITIALIZED_THIS &&
            frame->getOffset() > superOffset) {
            locals[0].setTag(VerificationType::OBJECT);
        }
        result = true;
    }
    return result;
}

void CodeAttribute::resetForEmptyMethodBody(ClassPool* classPool, const MemberHeader& method, int maxLocals,
                                            int maxStack) {
    removeAttributes("LineNumberTable");
    removeAttributes("StackMapTable");
    removeAttributes("LocalVariableTable");
    removeAttributes("LocalVariableTypeTable");
    myMaxStack = maxStack;
    myMaxLocals = maxLocals;
    deleteFrames();
    if (myStackMapsEnabled) myFrames.push(new (myArena) StackMapFrame(classPool, method));
    for (int i = 0; i < myExceptionTable.getSize(); i++) delete myExceptionTable[i];
    setAttributeLength(myAttributeLength - 8 * myExceptionTable.getSize());
    myExceptionTable.clear();
}
