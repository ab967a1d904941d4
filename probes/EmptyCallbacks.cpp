#include "probes/EmptyCallbacks.h"

#include "classfile/ByteCodeGenerator.h"
#include "classfile/ClassFile.h"
#include "probes/LoggerInstrumenter.h"
#include "probes/ProbeAnnotations.h"
#include "probes/ProbeDescriptor.h"
#include "services/Logger.h"

namespace {

bool isWide(char c) { return c == 'J' || c == 'D'; }

// Parameter slots of a static method, and the whole count.
int parameterSlots(const ZVectorSafe<ZString>& types, ZVector<int>* slots) {
    int slot = 0;
    for (const ZString& type : types) {
        if (slots != nullptr) slots->push(slot);
        slot += isWide(type[0]) ? 2 : 1;
    }
    return slot;
}

// The slot of the callback's parameter of that kind (and type, when given).
int findParameter(const MethodInfo* method, CallbackParameterKind kind, const ZString* type) {
    CallbackParameters parameters;
    fillCallbackParameters(method, parameters);
    ZVectorSafe<ZString> types;
    method->getParameterTypes(types);
    ZVector<int> slots;
    parameterSlots(types, &slots);
    for (int i = 0; i < parameters.getSize(); i++) {
        if (parameters[i].kind == kind && (type == nullptr || parameters[i].type.equals(*type))) return slots[i];
    }
    Logger::error("assertion failed", __FILE__, __LINE__);
}

// Installs the generated body in place of the method's.
void install(ClassFile* cf, MethodInfo* method, ByteCodeGenerator& g, int maxStack) {
    CodeAttribute* code = method->getCodeAttribute();
    ZVectorSafe<ZString> types;
    method->getParameterTypes(types);
    int maxLocals = parameterSlots(types, nullptr) + (method->isStatic() ? 0 : 1);
    g.applyTo(code);
    code->resetForEmptyMethodBody(cf, *method, maxLocals, maxStack);
}

// `return`, or the @ReturnValue parameter handed back.
void returnValueOrNothing(ByteCodeGenerator& g, const MethodInfo* method) {
    ZString type = method->getReturnType();
    if (type.equals("V")) {
        g.opcode(OpCodes::RETURN);
        return;
    }
    g.load(type, findParameter(method, CPK_RETURN_VALUE, &type));
    g.typedReturn(type);
}

void setEmptyOnEnterCallback(ClassFile* cf, MethodInfo* method) {
    ByteCodeGenerator g;
    ZString type = method->getReturnType();
    int stack = type.equals("V") ? 0 : g.zeroLoad(type);
    g.typedReturn(type);
    install(cf, method, g, stack);
}

void setEmptyOnReturnCallback(ClassFile* cf, MethodInfo* method) {
    ByteCodeGenerator g;
    returnValueOrNothing(g, method);
    install(cf, method, g, 2);
}

// Without discarding, the injected code rethrows; with it, the callback
// throws itself, as if nothing were discarded.
void setEmptyOnUncaughtExceptionCallback(ClassFile* cf, MethodInfo* method, bool discard) {
    ByteCodeGenerator g;
    if (discard) {
        g.aload(findParameter(method, CPK_THROWN_EXCEPTION, nullptr));
        g.opcode(OpCodes::ATHROW);
    } else {
        g.opcode(OpCodes::RETURN);
    }
    install(cf, method, g, 1);
}

void setEmptyOnExitCallback(ClassFile* cf, MethodInfo* method, bool discard) {
    ByteCodeGenerator g;
    if (discard) {
        int thrown = findParameter(method, CPK_THROWN_EXCEPTION, nullptr);
        g.aload(thrown);
        g.ifnull_start();
        g.aload(thrown);
        g.opcode(OpCodes::ATHROW);
        g.if_end();
    }
    returnValueOrNothing(g, method);
    install(cf, method, g, 2);
    method->getCodeAttribute()->addStackMapFrames(g.getBranchTargets(), 0, VerificationType(), -1, false, nullptr);
}

}  // namespace

bool makeProbeCallbackMethodsEmpty(const ProbeDescriptor* descriptor, ClassFile* cf) {
    KZT_ASSERT_NOT_NULL(descriptor);
    bool discard = descriptor->isDiscardThrownException();
    bool changed = false;
    ZVector<MethodInfo*, 10>& methods = cf->getMethods();
    for (int i = 0; i < methods.getSize(); i++) {
        MethodInfo* m = methods[i];
        CodeAttribute* code = m->getCodeAttribute();
        if (code == nullptr || !m->isStatic()) continue;
        const ZString& name = m->getName();
        bool callback = name.equals("onEnter") || name.equals("onReturn") || name.equals("onUncaughtException") ||
                        name.equals("onExit");
        if (!callback) continue;
        if (code->getFrames().isEmpty()) code->parseStackMapTable(cf, *m);
        if (name.equals("onEnter")) setEmptyOnEnterCallback(cf, m);
        else if (name.equals("onReturn")) setEmptyOnReturnCallback(cf, m);
        else if (name.equals("onUncaughtException")) setEmptyOnUncaughtExceptionCallback(cf, m, discard);
        else setEmptyOnExitCallback(cf, m, discard);
        changed = true;
    }
    return changed;
}

void setEmptyMethodBody(ClassFile* cf, MethodInfo* method) {
    CodeAttribute* code = method->getCodeAttribute();
    KZT_ASSERT_NOT_NULL(code);
    if (code->getFrames().isEmpty()) code->parseStackMapTable(cf, *method);
    ByteCodeGenerator g;
    int stack = 0;
    if (method->getName().equals("<init>")) {
        int methodRef = -1;
        if (LoggerInstrumenter::getConstructorSuperOrThisCallOffset(cf, code, &methodRef) < 0) {
            Logger::message(ZString("constructorSuperOrThisCallOffset assertion failed: ") + cf->getSignature() + " " +
                            method->getName());
            Logger::error("assertion failed", __FILE__, __LINE__);
        }
        const ConstantPool* pool = cf->getConstantPool();
        const ZString& called = static_cast<ConstantRefInfo*>((*pool)[methodRef])->getMethodSignature(pool);
        ZVectorSafe<ZString> types;
        MethodInfo::getParameterTypesBySignature(called, types);
        g.aload(0);
        stack = 1;
        for (const ZString& type : types) stack += g.zeroLoad(type);
        g.invokespecial(methodRef);
        g.opcode(OpCodes::RETURN);
    } else {
        ZString type = method->getReturnType();
        if (!type.equals("V")) stack = g.zeroLoad(type);
        g.typedReturn(type);
    }
    install(cf, method, g, stack);
}
