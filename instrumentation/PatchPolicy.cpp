#include "instrumentation/PatchPolicy.h"

#include "classfile/ByteConversions.h"
#include "classfile/OpCodes.h"
#include "db/SignatureNames.h"
#include "instrumentation/PatchSequences.h"
#include "services/Logger.h"

namespace {

// A `new` whose constructor call has not been reached yet.
enum NewInstructionKind {
    NEW_DUP_FOLLOWS = 0,  // the `dup` behind `new` keeps the object for the constructor call to report
    NEW_COPIED = 1,       // injected code made the copy
    NEW_GIVEN_UP = 2,
};

// ---- pseudo methods of allocated classes ----

int getPerClassMethodByName(const LockHolder& lock, const ZString& className) {
    return ZMethod::getByName(lock, convertClassSignatureToFullName(className.c_str()), "<<init>>", "()", "void", "",
                              false);
}

int getPerClassMethodForClass(ClassContext& c, int classIndex, const char* prefix) {
    int key = prefix[0] == 0 ? classIndex : -classIndex;
    int* known = c.pseudoMethodByClassIndex.getPtr(key);
    if (known != nullptr) return *known;
    int id = getPerClassMethodByName(c.lock, ZString(prefix) + c.classFile->getConstantClassSignature(classIndex));
    c.pseudoMethodByClassIndex.put(key, id);
    return id;
}

int getPerClassMethodForPrimitiveArray(const LockHolder& lock, int atype) {
    static const char* const names[] = {"[Z", "[C", "[F", "[D", "[B", "[S", "[I", "[J"};
    if (atype < 4 || atype > 11)
        Logger::error(ZString("unexpected primitive type: ") + ZString::fromLong(atype), __FILE__, __LINE__);
    return getPerClassMethodByName(lock, ZString(names[atype - 4]));
}

// The opcodes the policy looks at: returns, invocations, object and array
// creation, and the dup_x forms that can move a copied object.
struct Interest {
    bool flags[256] = {};
    Interest() {
        for (int opcode = 0; opcode < 256; opcode++) {
            flags[opcode] = OpCodes::isReturn(opcode) || (opcode >= OpCodes::INVOKEVIRTUAL && opcode <= OpCodes::ANEWARRAY) ||
                            opcode == OpCodes::MULTIANEWARRAY || (opcode >= OpCodes::DUP_X1 && opcode <= OpCodes::DUP2_X2);
        }
    }
};

}  // namespace

int patchLength(int kind, bool withSwitch) {
    switch (kind) {
        case KIND_EXIT:
        case KIND_LINE:
            return withSwitch ? EXIT_CODE_LENGTH_SWITCH : EXIT_CODE_LENGTH;
        case KIND_NEW_WITHOUT_DUP:
        case KIND_NEW_GIVEN_UP:
        case KIND_NEW_WITH_SWAP:
            return NEW_START_LENGTH;
        default:
            return ALLOCATION_CODE_LENGTH;
    }
}

PatchPolicy::PatchPolicy(ClassContext& c, Scratch& s, CodeEditor& editor, bool withTracing, bool withLines,
                         bool withAllocations)
    : c(c), s(s), myEditor(editor), myCode(c.method->getCodeAttribute()->getCode()),
      myLength(c.method->getCodeAttribute()->getCodeLength()), myTracing(withTracing),
      myLines(withLines), myAllocations(withAllocations) {}

const bool* PatchPolicy::interest() const {
    static const Interest interest;
    return interest.flags;
}

// Lengths are set once the scan has told whether the method holds a switch.
void PatchPolicy::insertBefore(int kind, int pc) {
    int index = s.records.getSize();
    s.records.push(PatchRecord{kind, pc, 0, myEditor.reserveBefore(pc, 0, index)});
}

void PatchPolicy::insertAfter(int kind, int pc, int id) {
    int index = s.records.getSize();
    s.records.push(PatchRecord{kind, pc, id, myEditor.reserveAfter(pc, myNext, 0, index)});
}

void PatchPolicy::visit(int opcode, int pc, int next) {
    myNext = next;
    switch (opcode) {
        case 172: case 173: case 174: case 175: case 176: case 177:
            if (myTracing) insertBefore(KIND_EXIT, pc);
            break;
        case OpCodes::INVOKEVIRTUAL: case OpCodes::INVOKESTATIC: case OpCodes::INVOKEINTERFACE:
        case OpCodes::INVOKEDYNAMIC:
            if (myLines) insertBefore(KIND_LINE, pc);
            break;
        case OpCodes::INVOKESPECIAL:
            if (myLines) insertBefore(KIND_LINE, pc);
            if (myAllocations && !s.pendingKinds.isEmpty()) onInvokeSpecial(pc);
            break;
        case OpCodes::NEW:
            if (myAllocations) onNew(pc);
            break;
        case OpCodes::NEWARRAY:
            if (myAllocations) insertAfter(KIND_NEW_ARRAY, pc, getPerClassMethodForPrimitiveArray(c.lock, myCode[pc + 1]));
            break;
        case OpCodes::ANEWARRAY:
            if (myAllocations)
                insertAfter(KIND_NEW_ARRAY, pc, getPerClassMethodForClass(c, ByteConversions::readU2(myCode, pc + 1), "["));
            break;
        case OpCodes::MULTIANEWARRAY:
            if (myAllocations)
                insertAfter(KIND_NEW_ARRAY, pc, getPerClassMethodForClass(c, ByteConversions::readU2(myCode, pc + 1), ""));
            break;
        case OpCodes::DUP_X1: case OpCodes::DUP_X2: case OpCodes::DUP2_X1: case OpCodes::DUP2_X2:
            if (!s.pendingKinds.isEmpty() && s.pendingKinds.peek() == NEW_COPIED) onDupX();
            break;
        default:
            break;
    }
}

void PatchPolicy::onNew(int pc) {
    int id = getPerClassMethodForClass(c, ByteConversions::readU2(myCode, pc + 1), "");
    int next = pc + 3 < myLength ? myCode[pc + 3] : -1;
    int afterNext = pc + 4 < myLength ? myCode[pc + 4] : -1;
    if (next == OpCodes::DUP && afterNext == OpCodes::POP) {
        Logger::message(ZString("warning: cannot inject object allocation callback due to a bad bytecode pattern (scala?): ") +
                        c.classFile->getSignature() + " " + methodName(c));
    } else if (next == OpCodes::DUP || next == OpCodes::DUP_X1 || next == OpCodes::DUP_X2) {
        s.pendingKinds.push(NEW_DUP_FOLLOWS);
        s.pendingIds.push(id);
    } else if (next == OpCodes::SWAP) {
        for (int i = 0; i < 2; i++) {
            s.pendingKinds.push(NEW_COPIED);
            s.pendingIds.push(id);
        }
        insertAfter(KIND_NEW_WITH_SWAP, pc, id);
    } else {
        s.pendingKinds.push(NEW_COPIED);
        s.pendingIds.push(id);
        insertAfter(KIND_NEW_WITHOUT_DUP, pc, id);
    }
}

void PatchPolicy::onInvokeSpecial(int pc) {
    const ConstantPool* pool = c.classFile->getConstantPool();
    int index = ByteConversions::readU2(myCode, pc + 1);
    KZT_ASSERT(index > 0 && index < pool->getSize());
    ConstantPoolInfo* entry = (*pool)[index];
    KZT_ASSERT_NOT_NULL(entry);
    int tag = entry->getTag();
    if (tag != ConstantPoolInfo::METHOD_REF && tag != ConstantPoolInfo::INTERFACE_METHOD_REF) {
        Logger::message(ZString("warning: INVOKESPECIAL in ") + c.classFile->getSignature() + ": unexpected tag " +
                        ZString::fromLong(tag));
        return;
    }
    if (!static_cast<ConstantRefInfo*>(entry)->getMethodName(pool).equals("<init>")) return;
    int kind = s.pendingKinds.pop();
    int id = s.pendingIds.pop();
    if (kind == NEW_GIVEN_UP) return;
    if (kind == NEW_DUP_FOLLOWS) {
        insertAfter(KIND_INIT_AFTER_DUP, pc, id);
    } else if (kind == NEW_COPIED) {
        insertAfter(KIND_INIT_AFTER_COPY, pc, id);
    } else {
        Logger::error(ZString("unexpected instruction kind ") + ZString::fromLong(kind), __FILE__, __LINE__);
    }
}

// A dup_x of an object that injected code copied moves the copy out of reach:
// the allocation of the innermost such `new` is given up, and its inserted
// bytes stay as nop.
void PatchPolicy::onDupX() {
    int i = s.records.getSize() - 1;
    while (i >= 0 && s.records[i].kind != KIND_NEW_WITHOUT_DUP && s.records[i].kind != KIND_NEW_WITH_SWAP) i--;
    KZT_ASSERT(i >= 0);
    int copies = s.records[i].kind == KIND_NEW_WITH_SWAP ? 2 : 1;
    for (int k = 0; k < copies; k++) {
        s.pendingKinds.pop();
        s.pendingIds.pop();
    }
    for (int k = 0; k < copies; k++) {
        s.pendingKinds.push(NEW_GIVEN_UP);
        s.pendingIds.push(0);
    }
    s.records[i].kind = KIND_NEW_GIVEN_UP;
}
