// Probe callbacks into target methods. Per method three pieces of code are
// generated: the entry code (saved parameters, onEnter, the start time),
// the return code placed in front of every return, and the handler code
// behind the method that a catch-all range around the method's body leads
// to. The CodeEditor puts them in and moves everything that holds an
// offset; this file adds the frames of the branches inside the pieces and
// of the handler, and the locals the pieces use.
#include "probes/LoggerInstrumenter.h"

#include "classfile/ByteCodeGenerator.h"
#include "classfile/ClassFile.h"
#include "classfile/CodeEditor.h"
#include "classfile/OpCodes.h"
#include "db/DB.h"
#include "db/SignatureNames.h"
#include "db/ZMethod.h"
#include "foundation/System.h"
#include "instrumentation/Instrumentation.h"
#include "probes/Probes.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "services/SharedConstants.h"

namespace {


const char* const OBJECT_TYPE = "Ljava/lang/Object;";
const char* const THROWABLE_CLASS = "java/lang/Throwable";

bool isReference(const ZString& type) { return type[0] == 'L' || type[0] == '['; }
bool isWide(const ZString& type) { return type[0] == 'J' || type[0] == 'D'; }
int slotsOf(const ZString& type) { return isWide(type) ? 2 : 1; }
bool isIntLike(char c) { return c == 'B' || c == 'C' || c == 'I' || c == 'S' || c == 'Z'; }

// Read once per process.
bool isBciDebug() {
    static const bool on = ourOptions.isDebug("bci");
    return on;
}

bool isSmtRestoreOff() {
    static const bool off = ourOptions.isInternalOption("_no_smt_restore");
    return off;
}

// A generator that also counts the stack its code needs, generously: every
// push adds, nothing is taken off.
struct Piece {
    ByteCodeGenerator code;
    int stack = 0;
    void clear() {
        code.clear();
        stack = 0;
    }
};

// The pool entries of one class and probe, made on the first method that
// qualifies.
struct ProbeRefs {
    bool made = false;
    int onEnter = -1;
    int onReturn = -1;     // the return callback
    int onException = -1;  // the exception callback
    int instanceOf = -1;   // only when a run-time check is needed
    int uptime = -1;
    ZString enterReturnType;
};

// Everything one method's injection works with.
struct MethodJob {
    MethodJob(const LockHolder& lock, ClassFile* cf, MethodInfo* method, ProbeDescriptor* probe, const ProbeRefs& refs)
        : lock(lock), cf(cf), method(method), code(nullptr), probe(probe), refs(refs) {}
    const LockHolder& lock;
    ClassFile* cf;
    MethodInfo* method;
    CodeAttribute* code;
    ProbeDescriptor* probe;
    const ProbeRefs& refs;
    ZString returnType;  // descriptor, "V" for void
    ZVectorSafe<ZString> parameterTypes;
    ZString parameterText;
    ZVector<int> entryIndices;
    ZVector<int> exitIndices;
    int enterResultVar = -1;
    int timeVar = -1;
    bool isStatic = false;
};

// ---- single values ----

int generateZeroLoad(Piece& p, const ZString& type) {
    int slots = p.code.zeroLoad(type);
    p.stack += slots;
    return slots;
}

void generateVariableLoad(Piece& p, const ZString& type, int slot) {
    p.code.load(type, slot);
    p.stack += slotsOf(type);
}

void generatePop(Piece& p, const ZString& type) {
    if (type.isEmpty() || type[0] == 'V') return;
    p.code.opcode(isWide(type) ? OpCodes::POP2 : OpCodes::POP);
}

struct Boxing {
    char primitive;
    const char* boxClass;
    const char* unboxName;
};

const Boxing BOXINGS[] = {
    {'Z', "java/lang/Boolean", "booleanValue"}, {'S', "java/lang/Short", "shortValue"},
    {'B', "java/lang/Byte", "byteValue"},       {'C', "java/lang/Character", "charValue"},
    {'D', "java/lang/Double", "doubleValue"},   {'F', "java/lang/Float", "floatValue"},
    {'I', "java/lang/Integer", "intValue"},     {'J', "java/lang/Long", "longValue"},
};

const Boxing& boxingOf(const ZString& type) {
    for (const Boxing& b : BOXINGS) {
        if (b.primitive == type[0]) return b;
    }
    Logger::error(ZString("unexpected java type: ") + type, __FILE__, __LINE__);
}

// The internal name of the wrapper class of a primitive type.
ZString getBoxedType(const ZString& type) { return ZString(boxingOf(type).boxClass); }

int methodRef(ClassFile* cf, const char* owner, const char* name, const ZString& descriptor) {
    return cf->findOrCreateMethodRef(cf->findOrCreateConstantClass(cf->findOrCreateUtf8(owner)), cf->findOrCreateUtf8(name),
                                     cf->findOrCreateUtf8(descriptor));
}

// Wrapper.valueOf(primitive).
int getValueOfIndex(ClassFile* cf, const ZString& type) {
    const Boxing& b = boxingOf(type);
    return methodRef(cf, b.boxClass, "valueOf", ZString("(") + type.substring(0, 1) + ")L" + b.boxClass + ";");
}

// wrapper.xxxValue().
int getPrimitiveValueIndex(ClassFile* cf, const ZString& type) {
    const Boxing& b = boxingOf(type);
    return methodRef(cf, b.boxClass, b.unboxName, ZString("()") + type.substring(0, 1));
}

// The few widenings a callback parameter may ask for; else the zero value.
void generateLoadConvertedValueOrZero(Piece& p, const ZString& from, const ZString& to, int slot) {
    if (isIntLike(from[0]) && from[0] != 'Z' && to.equals("I")) {
        generateVariableLoad(p, from, slot);
    } else if (isIntLike(from[0]) && from[0] != 'Z' && to.equals("J")) {
        generateVariableLoad(p, from, slot);
        p.code.opcode(OpCodes::I2L);
        p.stack += 1;
    } else if (from.equals("F") && to.equals("D")) {
        generateVariableLoad(p, from, slot);
        p.code.opcode(OpCodes::F2D);
        p.stack += 1;
    } else {
        generateZeroLoad(p, to);
    }
}

// A value of `type` from `slot` as a callback parameter of `callbackType`.
void generateLoadValue(Piece& p, ClassFile* cf, const ZString& type, int slot, const ZString& callbackType) {
    if (callbackType.equals(OBJECT_TYPE)) {
        generateVariableLoad(p, type, slot);
        if (!isReference(type)) p.code.invokestatic(getValueOfIndex(cf, type));
    } else if (callbackType.equals(type)) {
        generateVariableLoad(p, type, slot);
    } else {
        generateLoadConvertedValueOrZero(p, type, callbackType, slot);
    }
}

// ---- parameters of the target ----

// Parameter `index` (0-based) of the target; beyond its parameters the zero
// value, so that one probe serves overloads of different length.
void generateLoadParamCode(Piece& p, const MethodJob& job, int index, const ZString& callbackType,
                           const ZVector<int>& slots) {
    if (index < 0 || index >= job.parameterTypes.getSize()) {
        generateZeroLoad(p, callbackType);
        return;
    }
    generateLoadValue(p, job.cf, job.parameterTypes[index], slots[index], callbackType);
}

void generateLoadAllParamsCode(Piece& p, const MethodJob& job, const ZVector<int>& slots) {
    int count = job.parameterTypes.getSize();
    p.code.sipushExt(count);
    p.code.anewarray(job.cf->findOrCreateConstantClass(job.cf->findOrCreateUtf8("java/lang/Object")));
    p.stack += 1;
    for (int i = 0; i < count; i++) {
        p.code.opcode(OpCodes::DUP);
        p.code.sipushExt(i);
        p.stack += 2;
        generateLoadValue(p, job.cf, job.parameterTypes[i], slots[i], ZString(OBJECT_TYPE));
        p.code.opcode(OpCodes::AASTORE);
    }
}

// The elements of the array in `arrayVar` back into the parameters.
void generateStoreOutParamsCode(Piece& p, const MethodJob& job, int arrayVar) {
    ClassFile* cf = job.cf;
    for (int i = 0; i < job.parameterTypes.getSize(); i++) {
        const ZString& type = job.parameterTypes[i];
        p.code.aload(arrayVar);
        p.code.sipushExt(i);
        p.code.opcode(OpCodes::AALOAD);
        p.stack += 2;
        if (!isReference(type)) {
            p.code.checkCast(cf->findOrCreateConstantClass(cf->findOrCreateUtf8(getBoxedType(type))));
            p.code.invokevirtual(getPrimitiveValueIndex(cf, type));
            p.stack += 1;
        } else {
            ZString name = type[0] == 'L' ? type.substring(1, type.getLength() - 1) : type;
            p.code.checkCast(cf->findOrCreateConstantClass(cf->findOrCreateUtf8(name)));
        }
        p.code.store(type, job.entryIndices[i]);
    }
}

// @MethodName, @MethodSignature, @MethodParameterTypes, @ClassRef; false for
// other kinds.
bool handleMethodNamesCPK(Piece& p, const MethodJob& job, CallbackParameterKind kind) {
    ClassFile* cf = job.cf;
    switch (kind) {
    case CPK_METHOD_NAME: p.code.ldc(cf->findOrCreateStringInfo(job.method->getName())); break;
    case CPK_METHOD_SIGNATURE: p.code.ldc(cf->findOrCreateStringInfo(job.method->getDescriptor())); break;
    case CPK_METHOD_PARAMETER_TYPES: p.code.ldc(cf->findOrCreateStringInfo(job.parameterText)); break;
    case CPK_CLASS_REF:
        p.code.ldc(cf->findOrCreateConstantClass(cf->findOrCreateUtf8(cf->getSignature())));
        // `ldc` of a class needs the format of Java 5.
        if (cf->getMajorVersion() < 49) cf->setMajorVersion(49);
        break;
    default: return false;
    }
    p.stack += 1;
    return true;
}

void generateThis(Piece& p, const MethodJob& job) {
    if (job.isStatic) {
        p.code.opcode(OpCodes::ACONST_NULL);
    } else {
        p.code.aload(0);
        if (job.refs.instanceOf >= 0) p.code.checkCast(job.refs.instanceOf);
    }
    p.stack += 1;
}

// aload_0; instanceof; ifeq: the callback runs only for instances of the
// probe's class.
void openInstanceOfCheck(Piece& p, const MethodJob& job) {
    if (job.refs.instanceOf < 0) return;
    p.code.aload(0);
    p.code.instanceOf(job.refs.instanceOf);
    p.code.ifeq_start();
    p.stack += 1;
}

void closeInstanceOfCheck(Piece& p, const MethodJob& job) {
    if (job.refs.instanceOf >= 0) p.code.if_end();
}

[[noreturn]] void unexpectedKind(CallbackParameterKind kind) {
    Logger::error(ZString("unexpected callback parameter kind: ") + ZString::fromLong(kind), __FILE__, __LINE__);
}

// The parameters that exit callbacks (return and exception code) share.
bool generateCommonExitParameter(Piece& p, const MethodJob& job, const CallbackParameter& cp) {
    switch (cp.kind) {
    case CPK_PARAM: generateLoadParamCode(p, job, cp.index - 1, cp.type, job.exitIndices); return true;
    case CPK_PARAMS: generateLoadAllParamsCode(p, job, job.exitIndices); return true;
    case CPK_THIS: generateThis(p, job); return true;
    case CPK_ON_ENTER_RESULT: generateVariableLoad(p, cp.type, job.enterResultVar); return true;
    case CPK_METHOD_TIME_MS:
        p.code.invokestatic(job.refs.uptime);
        p.code.lload(job.timeVar);
        p.code.opcode(OpCodes::LSUB);
        p.stack += 4;
        return true;
    default: return handleMethodNamesCPK(p, job, cp.kind);
    }
}

bool hasKind(const CallbackParameters* parameters, CallbackParameterKind kind) {
    if (parameters == nullptr) return false;
    for (const CallbackParameter& p : *parameters) {
        if (p.kind == kind) return true;
    }
    return false;
}

// ---- the three pieces ----

void insertSaveOnExitParamsCode(Piece& p, MethodJob& job) {
    for (int i = 0; i < job.exitIndices.getSize(); i++) {
        if (job.exitIndices[i] != -1) continue;
        const ZString& type = job.parameterTypes[i];
        int saved = job.code->addLocalVariableToTable(VerificationType(type, job.cf), true);
        generateVariableLoad(p, type, job.entryIndices[i]);
        p.code.store(type, saved);
        job.exitIndices[i] = saved;
    }
}

void insertEntryCode(Piece& p, MethodJob& job) {
    if (job.refs.instanceOf >= 0 && job.enterResultVar >= 0) {
        // Assigned on both paths of the check.
        generateZeroLoad(p, job.refs.enterReturnType);
        p.code.store(job.refs.enterReturnType, job.enterResultVar);
    }
    openInstanceOfCheck(p, job);
    int outArray = -1;
    for (const CallbackParameter& cp : *job.probe->getOnEnterParameters()) {
        switch (cp.kind) {
        case CPK_PARAM: generateLoadParamCode(p, job, cp.index - 1, cp.type, job.entryIndices); break;
        case CPK_PARAMS:
            generateLoadAllParamsCode(p, job, job.entryIndices);
            if (cp.isOut) {
                outArray = job.code->addLocalVariableToTable(VerificationType(), false);
                p.code.opcode(OpCodes::DUP);
                p.code.astore(outArray);
                p.stack += 1;
            }
            break;
        case CPK_THIS: generateThis(p, job); break;
        default:
            if (!handleMethodNamesCPK(p, job, cp.kind)) unexpectedKind(cp.kind);
        }
    }
    p.code.invokestatic(job.refs.onEnter);
    if (job.enterResultVar >= 0) {
        p.code.store(job.refs.enterReturnType, job.enterResultVar);
    } else {
        generatePop(p, job.refs.enterReturnType);
    }
    if (outArray >= 0) {
        generateStoreOutParamsCode(p, job, outArray);
        p.code.opcode(OpCodes::ACONST_NULL);
        p.code.astore(outArray);
    }
    closeInstanceOfCheck(p, job);
}

// Runs with the target's return value on the stack (none when void).
void insertOnReturnCode(Piece& p, MethodJob& job) {
    openInstanceOfCheck(p, job);
    const CallbackParameters* parameters = job.probe->getReturnParameters();
    bool isVoid = job.returnType.equals("V");
    bool replaces = job.probe->hasReturnValue();
    int returnVar = -1;
    if (!isVoid) {
        if (hasKind(parameters, CPK_RETURN_VALUE)) {
            if (!replaces) {
                p.code.opcode(isWide(job.returnType) ? OpCodes::DUP2 : OpCodes::DUP);
                p.stack += slotsOf(job.returnType);
            }
            returnVar = job.code->addLocalVariableToTable(VerificationType(), false);
            if (isWide(job.returnType)) job.code->addLocalVariableToTable(VerificationType(), false);
            p.code.store(job.returnType, returnVar);
        } else if (replaces) {
            generatePop(p, job.returnType);
        }
    }
    for (const CallbackParameter& cp : *parameters) {
        if (generateCommonExitParameter(p, job, cp)) continue;
        if (cp.kind == CPK_RETURN_VALUE) {
            if (isVoid) generateZeroLoad(p, cp.type);
            else generateLoadValue(p, job.cf, job.returnType, returnVar, cp.type);
        } else if (cp.kind == CPK_THROWN_EXCEPTION) {
            generateZeroLoad(p, cp.type);
        } else {
            unexpectedKind(cp.kind);
        }
    }
    p.code.invokestatic(job.refs.onReturn);
    closeInstanceOfCheck(p, job);
}

// Runs at the handler, with the exception on the stack.
void insertOnExceptionCode(Piece& p, MethodJob& job) {
    openInstanceOfCheck(p, job);
    const CallbackParameters* parameters = job.probe->getExceptionParameters();
    bool discard = job.probe->isDiscardThrownException();
    int thrownVar = -1;
    if (hasKind(parameters, CPK_THROWN_EXCEPTION)) {
        if (!discard) {
            p.code.opcode(OpCodes::DUP);
            p.stack += 1;
        }
        thrownVar = job.code->addLocalVariableToTable(VerificationType(), false);
        p.code.astore(thrownVar);
    } else if (discard) {
        p.code.opcode(OpCodes::POP);
    }
    for (const CallbackParameter& cp : *parameters) {
        if (generateCommonExitParameter(p, job, cp)) continue;
        if (cp.kind == CPK_THROWN_EXCEPTION) {
            p.code.aload(thrownVar);
            p.stack += 1;
        } else if (cp.kind == CPK_RETURN_VALUE) {
            generateZeroLoad(p, cp.type);
        } else {
            unexpectedKind(cp.kind);
        }
    }
    p.code.invokestatic(job.refs.onException);
    ZString callbackType = job.refs.onException >= 0 ? job.probe->getExceptionDescriptor().getLastToken(')') : ZString();
    if (discard) {
        // The callback's result is the target's; a void callback in a
        // target with a value makes it return the zero value.
        if ((callbackType.equals("V")) && !job.returnType.equals("V")) generateZeroLoad(p, job.returnType);
        p.code.typedReturn(job.returnType);
    } else {
        generatePop(p, callbackType);
    }
    closeInstanceOfCheck(p, job);
    // Without discarding, and on the path where the run-time check failed,
    // the exception goes on.
    if (!discard || job.refs.instanceOf >= 0) p.code.opcode(OpCodes::ATHROW);
}

// ---- analysis of the original code ----

// Slots that a store or iinc anywhere in the code writes.
void fillModifiedVariableIndices(const CodeAttribute* code, ZVector<int>& modified) {
    const unsigned char* bytes = code->getCode();
    int length = code->getCodeLength();
    for (int pc = 0; pc < length;) {
        int opcode = bytes[pc];
        int n = OpCodes::instructionLength(bytes, length, pc);
        int slot = -1;
        bool wide = false;
        if (opcode >= OpCodes::ISTORE && opcode <= OpCodes::ASTORE) {
            slot = bytes[pc + 1];
            wide = opcode == OpCodes::LSTORE || opcode == OpCodes::DSTORE;
        } else if (opcode >= OpCodes::ISTORE_0 && opcode <= OpCodes::ASTORE_0 + 3) {
            slot = (opcode - OpCodes::ISTORE_0) % 4;
            wide = (opcode >= OpCodes::LSTORE_0 && opcode < OpCodes::FSTORE_0) ||
                   (opcode >= OpCodes::DSTORE_0 && opcode < OpCodes::ASTORE_0);
        } else if (opcode == OpCodes::IINC) {
            slot = bytes[pc + 1];
        } else if (opcode == OpCodes::WIDE) {
            int inner = bytes[pc + 1];
            if ((inner >= OpCodes::ISTORE && inner <= OpCodes::ASTORE) || inner == OpCodes::IINC) {
                slot = (bytes[pc + 2] << 8) | bytes[pc + 3];
                wide = inner == OpCodes::LSTORE || inner == OpCodes::DSTORE;
            }
        }
        if (slot >= 0) {
            modified.push(slot);
            if (wide) modified.push(slot + 1);
        }
        pc += n;
    }
}

bool isSlotModified(const ZVector<int>& modified, int slot, const ZString& type) {
    return modified.contains(slot) || (isWide(type) && modified.contains(slot + 1));
}

// Entry and exit slots of the parameters; a parameter that exit callbacks
// read and that the method assigns gets exit index -1 (saved at entry).
void fillParamIndices(MethodJob& job, const ZVector<int>& modified) {
    int slot = job.isStatic ? 0 : 1;
    for (const ZString& type : job.parameterTypes) {
        job.entryIndices.push(slot);
        job.exitIndices.push(slot);
        slot += slotsOf(type);
    }
    int count = job.parameterTypes.getSize();
    ZVector<bool> readAtExit;
    readAtExit.resize(count, false);
    const CallbackParameters* lists[] = {job.probe->getReturnParameters(), job.probe->getExceptionParameters()};
    for (const CallbackParameters* list : lists) {
        if (list == nullptr) continue;
        for (const CallbackParameter& cp : *list) {
            if (cp.kind == CPK_PARAM && cp.index >= 1 && cp.index <= count) readAtExit[cp.index - 1] = true;
            if (cp.kind == CPK_PARAMS) {
                for (int i = 0; i < count; i++) readAtExit[i] = true;
            }
        }
    }
    for (int i = 0; i < count; i++) {
        if (readAtExit[i] && isSlotModified(modified, job.entryIndices[i], job.parameterTypes[i])) job.exitIndices[i] = -1;
    }
}

// `this` and each parameter that the method never assigns, by its entry
// index in the initial frame: what a handler around the method may rely on.
void fillPreservedVariables(const MethodJob& job, const ZVector<int>& modified, ZVector<int, 10>& preserved) {
    ZVector<int, 10> kept;
    int entry = 0;
    if (!job.isStatic) kept.push(entry++);
    int slot = entry;
    for (const ZString& type : job.parameterTypes) {
        if (!isSlotModified(modified, slot, type)) kept.push(entry);
        entry++;
        slot += slotsOf(type);
    }
    preserved = kept;
}

// The locals of the initial frame: what holds on entry and, in a
// constructor past its super call, with `this` initialised.
VerificationTypes initialLocals(const CodeAttribute* code, bool initialised) {
    VerificationTypes locals = const_cast<CodeAttribute*>(code)->getFrames()[0]->getLocals();
    for (VerificationType& t : locals) {
        if (initialised && t.getTag() == VerificationType::UNINITIALIZED_THIS) t.setTag(VerificationType::OBJECT);
    }
    return locals;
}

// The initial locals reduced to the variables the method never assigns:
// what holds at any point of the method.
VerificationTypes preservedLocals(CodeAttribute* code, bool initialised) {
    VerificationTypes all = initialLocals(code, initialised);
    VerificationTypes kept;
    for (int i = 0; i < all.getSize(); i++) {
        if (code->getPreservedVariables().contains(i)) {
            kept.push(all[i]);
        } else {
            kept.push(VerificationType());
            if (all[i].isWide()) kept.push(VerificationType());
        }
    }
    return kept;
}

// ---- one method ----

ZString describe(const MethodJob& job) {
    return job.cf->getSignature().replaceAll("/", ".") + "." + job.method->getName() + job.parameterText;
}

void logTooLong(const MethodJob& job, const char* which) {
    Logger::message(ZString("warning: ") + describe(job) + " not instrumented by probe " +
                    job.probe->getClassSignature().replaceAll("/", ".") + " because resulting bytecode is too long (" +
                    which + ")");
}

struct Scratch {
    Piece entry;
    Piece handler;
    Piece onReturn;
    CodeEditor editor;
    ZVector<int> modified;
    ZVector<int> returnIds;
};

Scratch& scratch() {
    static Scratch* instance = new Scratch();
    return *instance;
}

bool instrumentMethodByProbeDescriptor(MethodJob& job) {
    ClassFile* cf = job.cf;
    MethodInfo* m = job.method;
    CodeAttribute* ca = m->getCodeAttribute();
    job.code = ca;
    if (ca->getFrames().isEmpty()) ca->parseStackMapTable(cf, *m);
    ProbeDescriptor* probe = job.probe;
    job.isStatic = m->isStatic();
    job.returnType = m->getReturnType();
    m->getParameterTypes(job.parameterTypes);
    int originalLength = ca->getCodeLength();
    int originalMaxStack = ca->getMaxStack();

    if (probe->usesOnEnterResult() && !job.refs.enterReturnType.equals("V")) {
        job.enterResultVar = ca->addLocalVariableToTable(VerificationType(job.refs.enterReturnType, cf), true);
    }
    if (probe->usesMethodTime()) job.timeVar = ca->addLocalVariableToTable(VerificationType(VerificationType::LONG, -1), true);

    bool isConstructor = m->getName().equals("<init>");
    int superEnd = -1;
    if (isConstructor) {
        superEnd = LoggerInstrumenter::getConstructorSuperOrThisCallOffset(cf, ca, nullptr);
        if (superEnd < 0) {
            Logger::message(ZString("warning: no 'super' or 'this' call in a constructor: ") +
                            cf->getSignature().replaceAll("/", ".") + ".<init>" + job.parameterText);
            ca->rollbackAddedVariables();
            return false;
        }
    }

    Scratch& s = scratch();
    s.modified.clear();
    fillModifiedVariableIndices(ca, s.modified);
    fillPreservedVariables(job, s.modified, ca->getPreservedVariables());
    if (!isSmtRestoreOff() && ca->tryRestoreWipedVariablesInStackMapTable(superEnd)) {
        Logger::message(ZString("smt_restore applied: ") + describe(job));
    }
    fillParamIndices(job, s.modified);

    // The entry code.
    s.entry.clear();
    insertSaveOnExitParamsCode(s.entry, job);
    if (probe->getOnEnterParameters() != nullptr) {
        if (probe->usesMethodTime()) {
            s.entry.code.opcode(OpCodes::LCONST_0);
            s.entry.code.lstore(job.timeVar);
        }
        insertEntryCode(s.entry, job);
    }
    if (probe->usesMethodTime()) {
        s.entry.code.invokestatic(job.refs.uptime);
        s.entry.code.lstore(job.timeVar);
        s.entry.stack += 2;
    }
    s.handler.clear();
    if (probe->getExceptionParameters() != nullptr) insertOnExceptionCode(s.handler, job);
    if (originalLength + s.entry.code.getLength() + s.handler.code.getLength() >= 65536) {
        logTooLong(job, "A");
        ca->rollbackAddedVariables();
        return false;
    }
    s.onReturn.clear();
    if (probe->getReturnParameters() != nullptr) insertOnReturnCode(s.onReturn, job);

    // The receiver may not be touched before the super call.
    bool entryBehindSuper = isConstructor &&
        (!probe->getInstanceOf().isEmpty() || hasKind(probe->getOnEnterParameters(), CPK_THIS) ||
         hasKind(probe->getExceptionParameters(), CPK_THIS));
    int superPc = superEnd - 3;

    CodeEditor& editor = s.editor;
    editor.begin(ca);
    const unsigned char* entryBytes = s.entry.code.getCode();
    int entryLength = s.entry.code.getLength();
    int entryId = entryBehindSuper ? editor.insertAfter(superPc, entryBytes, entryLength)
                                   : editor.insertAtStart(entryBytes, entryLength);
    s.returnIds.clear();
    if (s.onReturn.code.getLength() > 0) {
        const unsigned char* code = ca->getCode();
        for (int pc = 0; pc < originalLength; pc += OpCodes::instructionLength(code, originalLength, pc)) {
            if (OpCodes::isReturn(code[pc])) {
                s.returnIds.push(editor.insertBefore(pc, s.onReturn.code.getCode(), s.onReturn.code.getLength()));
            }
        }
    }
    int handlerId = editor.insertAtEnd(s.handler.code.getCode(), s.handler.code.getLength());
    if (!editor.hasInsertions()) {
        ca->rollbackAddedVariables();
        return true;
    }
    if (!editor.apply()) {
        logTooLong(job, "B");
        ca->rollbackAddedVariables();
        return false;
    }

    // Positions in the new code.
    int newSuperPc = isConstructor ? editor.getInstructionOffset(superPc) : -1;
    int entryPos = entryId >= 0 ? editor.getInsertionOffset(entryId) : 0;
    // The handler's range: the original code behind the entry code, and in a
    // constructor behind the super call.
    int bodyStart = entryId >= 0 ? entryPos + entryLength : 0;
    if (isConstructor && (entryId < 0 || !entryBehindSuper)) bodyStart = newSuperPc + 3;
    int handlerPos = editor.getBlockOffset(originalLength);

    bool withFrames = ca->isStackMapsEnabled();
    VerificationTypes preservedAfterSuper;
    if (withFrames) preservedAfterSuper = preservedLocals(ca, true);
    VerificationType throwable(VerificationType::OBJECT,
                               cf->findOrCreateConstantClass(cf->findOrCreateUtf8(THROWABLE_CLASS)));

    // Frames of the branches in the return code: the locals that the
    // handler of the return expects, else those that hold anywhere.
    const ZVector<int, 10>& returnTargets = s.onReturn.code.getBranchTargets();
    if (withFrames && !returnTargets.isEmpty()) {
        VerificationType returned = job.returnType.equals("V") ? VerificationType() : VerificationType(job.returnType, cf);
        for (int id : s.returnIds) {
            int at = editor.getInsertionOffset(id);
            VerificationTypes* known = ca->getKnownTypesForExceptionHandler(ca->findHandlerIndexForInstruction(at));
            ca->addStackMapFrames(returnTargets, at, returned, newSuperPc, false,
                                  known != nullptr ? known : &preservedAfterSuper);
            delete known;
        }
    }
    // Frames of the branches in the entry code: the locals on entry.
    if (withFrames && entryId >= 0 && !s.entry.code.getBranchTargets().isEmpty()) {
        VerificationTypes onEntry = initialLocals(ca, entryBehindSuper);
        ca->addStackMapFrames(s.entry.code.getBranchTargets(), entryPos, VerificationType(), -1, false, &onEntry);
    }
    // The handler around the body, after the method's own handlers.
    if (handlerId >= 0) {
        KZT_ASSERT(bodyStart < handlerPos);
        ca->addExceptionHandler(bodyStart, handlerPos, handlerPos, throwable, newSuperPc);
        ca->addStackMapFrames(s.handler.code.getBranchTargets(), handlerPos, throwable, newSuperPc, false,
                              &preservedAfterSuper);
    }
    ca->applyAddedVariables(entryPos);
    int need = s.entry.stack;
    if (1 + s.handler.stack > need) need = 1 + s.handler.stack;
    if (originalMaxStack + s.onReturn.stack > need) need = originalMaxStack + s.onReturn.stack;
    ca->ensureStackCapacity(need);
    return true;
}

// ---- the class ----

// Matches in this order: name, parameters, return type, method annotation.
bool matchesPattern(ProbeDescriptor* probe, int i, MethodInfo* m, const ZString& parameters,
                    const ZString& returnType) {
    return wildcardMatchZS(probe->getMethodNamePattern(i), m->getName()) &&
           wildcardMatchZS(probe->getSignaturePattern(i), parameters) &&
           wildcardMatchZS(probe->getReturnTypePattern(i), returnType) &&
           m->hasMatchingAnnotation(probe->getMethodAnnotationSignature(i));
}

bool declaresAll(MethodInfo* m, const ZVectorSafe<ZString>& exceptions) {
    if (exceptions.isEmpty()) return true;
    ZVectorSafe<ZString> declared;
    m->fillExceptions(declared);
    for (const ZString& e : exceptions) {
        if (!declared.contains(e)) return false;
    }
    return true;
}

void logOnce(ClassFile* cf, const ZString& text) {
    if (cf->getLoggedSkips().add(text)) Logger::message(text);
}

void makeRefs(ClassFile* cf, ProbeDescriptor* probe, bool runtimeInstanceOf, ProbeRefs& refs) {
    int probeClass = cf->findOrCreateConstantClass(cf->findOrCreateUtf8(probe->getClassSignature()));
    auto callback = [&](const char* name, const ZString& descriptor) {
        return cf->findOrCreateMethodRef(probeClass, cf->findOrCreateUtf8(name), cf->findOrCreateUtf8(descriptor));
    };
    if (probe->getOnEnterParameters() != nullptr) {
        refs.onEnter = callback("onEnter", probe->getOnEnterDescriptor());
        refs.enterReturnType = probe->getOnEnterDescriptor().getLastToken(')');
    }
    if (probe->getReturnParameters() != nullptr) {
        refs.onReturn = callback(probe->isOnExit() ? "onExit" : "onReturn", probe->getReturnDescriptor());
    }
    if (probe->getExceptionParameters() != nullptr) {
        refs.onException = callback(probe->isOnExit() ? "onExit" : "onUncaughtException", probe->getExceptionDescriptor());
    }
    if (probe->usesMethodTime()) refs.uptime = methodRef(cf, CALLBACK_CLASS, "getUptimeMs", ZString("()J"));
    if (runtimeInstanceOf) refs.instanceOf = cf->findOrCreateConstantClass(cf->findOrCreateUtf8(probe->getInstanceOf()));
    refs.made = true;
}

}  // namespace

int LoggerInstrumenter::getConstructorSuperOrThisCallOffset(ClassFile* cf, const CodeAttribute* code, int* methodRefOut) {
    const ConstantPool* pool = cf->getConstantPool();
    const ZString& self = cf->getSignature();
    const ZString* super = cf->getSuperClassSignature();
    auto isOwnOrSuper = [&](const ZString& name) { return name.equals(self) || (super != nullptr && name.equals(*super)); };
    const unsigned char* bytes = code->getCode();
    int length = code->getCodeLength();
    int depth = 0;
    for (int pc = 0; pc < length;) {
        int opcode = bytes[pc];
        if (opcode == OpCodes::NEW) {
            int index = (bytes[pc + 1] << 8) | bytes[pc + 2];
            if (isOwnOrSuper(cf->getConstantClassSignature(index))) depth++;
        } else if (opcode == OpCodes::INVOKESPECIAL || opcode == OpCodes::INVOKESTATIC) {
            int index = (bytes[pc + 1] << 8) | bytes[pc + 2];
            ConstantPoolInfo* entry = (*pool)[index];
            KZT_ASSERT_NOT_NULL(entry);
            KZT_ASSERT(entry->getTag() == ConstantPoolInfo::METHOD_REF ||
                       entry->getTag() == ConstantPoolInfo::INTERFACE_METHOD_REF);
            ConstantRefInfo* ref = static_cast<ConstantRefInfo*>(entry);
            const ZString& name = ref->getMethodName(pool);
            if (opcode == OpCodes::INVOKESTATIC) {
                if (name.endsWith("getCallSiteArray")) return -1;
            } else if (name.equals("<init>") && isOwnOrSuper(ref->getClassSignature(pool))) {
                if (depth == 0) {
                    if (methodRefOut != nullptr) *methodRefOut = index;
                    return pc + 3;
                }
                depth--;
            }
        } else if (opcode == OpCodes::TABLESWITCH || opcode == OpCodes::LOOKUPSWITCH) {
            return -1;
        }
        if (opcode == OpCodes::WIDE) {
            pc += pc + 1 < length && bytes[pc + 1] == OpCodes::IINC ? 6 : 4;
            continue;
        }
        int n = ourOpCodeLength[opcode];
        if (n < 1) Logger::error(ZString("Wrong instruction opcode found: ") + ZString::fromLong(opcode), __FILE__, __LINE__);
        pc += n;
    }
    return -1;
}

bool LoggerInstrumenter::instrumentClassByProbeDescriptor(const LockHolder& lock, ProbeDescriptor* probe,
                                                          const ZVector<int>& positive, const ZVector<int>& negative,
                                                          ClassFile* cf) {
    const ZString& instanceOf = probe->getInstanceOf();
    const ZString* super = cf->getSuperClassSignature();
    bool runtimeInstanceOf = false;
    if (!instanceOf.isEmpty()) {
        if (super == nullptr) return false;
        bool direct = cf->getSignature().equals(instanceOf) || super->equals(instanceOf) || cf->hasDirectInterface(instanceOf);
        if (!direct) {
            bool objectChild = super->equals("java/lang/Object");
            // Such a class cannot qualify.
            if (objectChild && (instanceOf.equals("java/lang/Thread") || !cf->hasInterfaces())) return false;
            runtimeInstanceOf = true;
        }
    }
    ZString className = cf->getSignature().replaceAll("/", ".");
    ZString probeName = probe->getClassSignature().replaceAll("/", ".");
    ProbeRefs refs;
    bool changed = false;
    ZVector<MethodInfo*, 10>& methods = cf->getMethods();
    for (int i = 0; i < methods.getSize(); i++) {
        MethodInfo* m = methods[i];
        if (m->getCodeAttribute() == nullptr) continue;
        const ZString& name = m->getName();
        if (!probe->getCallbackReturnType().isEmpty() && !probe->getCallbackReturnType().equals(m->getReturnType())) continue;
        if (!instanceOf.isEmpty() && m->isStatic()) continue;
        if (super == nullptr && (name.equals("<init>") || name.equals("<clinit>") || name.equals("finalize"))) continue;
        if (probe->isCpuTracingSupport()) {
            int reason = 0;
            if (shouldSkipInstrumentationForTracingAndAllocation(m, &reason)) continue;
        }
        ZString returnType = getReturnTypeFromMethodSignature(m->getDescriptor());
        ZString parameters = convertMethodSignatureToParameters(m->getDescriptor());
        bool excluded = false;
        for (int k : negative) excluded = excluded || matchesPattern(probe, k, m, parameters, returnType);
        if (excluded) continue;
        if (Probes::isFilteredMethod(className, name, parameters)) {
            logOnce(cf, ZString("-skip (bci_filter): ") + className + "." + name + parameters);
            continue;
        }
        bool selected = false;
        for (int k : positive) selected = selected || matchesPattern(probe, k, m, parameters, returnType);
        if (!selected) continue;
        if (!declaresAll(m, probe->getCallbackExceptions())) {
            logOnce(cf, ZString("Warning: ") + className + "." + name + parameters + " not instrumented by probe " +
                            probeName + " because probe callbacks throw exceptions non-thrown in the method");
            continue;
        }
        if (m->isSyntheticAndBridge()) {
            if (isBciDebug()) logOnce(cf, ZString("-skip probe for synthetic: ") + className + "." + name + parameters + " " + returnType);
            continue;
        }
        if (!refs.made) makeRefs(cf, probe, runtimeInstanceOf, refs);
        MethodJob job(lock, cf, m, probe, refs);
        job.parameterText = parameters;
        if (!instrumentMethodByProbeDescriptor(job)) continue;
        changed = true;
        if (ourDB != nullptr) {
            int id = ZMethod::getByName(lock, className, name, parameters, returnType, cf->getSourceName(), m->isNative());
            MethodRecord* record = ZMethod::getRecord(id);
            KZT_ASSERT_NOT_NULL(record);
            record->myFlags |= METHOD_FLAG_PROBE_INSTRUMENTED;
            record->myStamp = ourDB->getCurrentGeneration();
        }
        if (isBciDebug() && !probe->isCpuTracingSupport()) {
            ZString shortName = ProbeCreationResult::getProbeClassSignatureForLog(probe->getClassSignature()).replaceAll("/", ".");
            Logger::message(ZString("instrumented by probe: ") + shortName + " -> " + className + "." + name + parameters +
                            " " + returnType);
        }
    }
    return changed;
}
