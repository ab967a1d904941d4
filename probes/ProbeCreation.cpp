// A probe class's bytes into a ProbeDescriptor, or into the exact error lines
// that tell its author what is wrong. Nothing here loads or runs the class.
#include <initializer_list>
#include <memory>

#include "classfile/ClassFile.h"
#include "db/SignatureUtil.h"
#include "probes/ProbeAnnotations.h"
#include "probes/Probes.h"
#include "services/Logger.h"

namespace {

const char* const ON_ENTER = "onEnter";
const char* const ON_RETURN = "onReturn";
const char* const ON_UNCAUGHT_EXCEPTION = "onUncaughtException";
const char* const ON_EXIT = "onExit";

// Which callback a parameter list belongs to, for the rules that differ.
struct CallbackContext {
    const ZString& className;  // dotted
    const MethodInfo* method;
    const MethodInfo* onEnter;  // null when the probe has none
    ZString& instanceOf;        // internal name; @This may set it
    bool hasInstanceOf;         // @InstanceOf was given
    bool discard;               // @DiscardThrownException applies to this callback
};

bool isCallback(const MethodInfo* method, const char* name) { return method->getName().equals(name); }

struct Rule {
    bool holds;
    const char* message;
};

// The first rule that does not hold gives the parameter's error.
template <typename Fail>
void checkRules(Fail fail, std::initializer_list<Rule> rules) {
    for (const Rule& rule : rules) {
        if (!rule.holds) return fail(rule.message);
    }
}

// What one callback has seen of the kinds that may occur once.
struct SeenKinds {
    bool params = false;
    bool self = false;
    bool thrown = false;
    bool enterResult = false;
    bool time = false;
};

// Tells whether a kind is seen for the first time, and notes it; asked only
// once the rules before it hold.
bool first(bool& seen) {
    bool firstTime = !seen;
    seen = true;
    return firstTime;
}

// Checks one parameter; adds its errors to `result`.
void checkParameter(const CallbackContext& c, const CallbackParameter& p, int index, SeenKinds& seen,
                    ProbeCreationResult* result) {
    const ZString& methodName = c.method->getName();
    auto fail = [&](const char* message) { result->addError(c.className, methodName, index, ZString(message)); };
    if (p.kind == CPK_SEVERAL) return fail("more than 1 callback annotation");
    if (p.kind == CPK_NOT_ANNOTATED) return fail("parameter must be annotated");
    bool inEnter = isCallback(c.method, ON_ENTER);
    if (p.isOut) {
        checkRules(fail, {{p.kind == CPK_PARAMS, "@Out must be used only with @Params"},
                          {inEnter, "@Out must be used only in onEnter()"}});
        if (p.kind != CPK_PARAMS || !inEnter) return;
    }
    bool inExit = isCallback(c.method, ON_EXIT);
    switch (p.kind) {
    case CPK_PARAM:
        checkRules(fail, {{p.index > 0, "invalid @Param annotation: index must be 1 or greater"}});
        break;
    case CPK_PARAMS: {
        bool typed = p.type.equals("[Ljava/lang/Object;");
        checkRules(fail, {{typed, "@Params must be Object[]"},
                          {!typed || first(seen.params), "parameter with @Params annotation already exists"}});
        break;
    }
    case CPK_THIS: {
        // The checks after "first" run also when it fails.
        checkRules(fail, {{first(seen.self), "parameter with @This annotation already exists"}});
        if (!p.type.startsWith("L")) return fail("@This must be a reference type");
        ZString name = p.type.substring(1, p.type.getLength() - 1);
        if (c.instanceOf.isEmpty()) c.instanceOf = name;
        if (c.hasInstanceOf) {
            checkRules(fail, {{name.equals("java/lang/Object"),
                               "in probes annotated with @InstanceOf, parameters annotated with @This must be of type "
                               "java.lang.Object"}});
        } else {
            checkRules(fail, {{name.equals(c.instanceOf),
                               "parameters with @This annotation must have the same types in all callbacks"}});
        }
        break;
    }
    case CPK_RETURN_VALUE:
        checkRules(fail, {{isCallback(c.method, ON_RETURN) || inExit,
                           "@ReturnValue is only allowed in onReturn() and onExit()"}});
        break;
    case CPK_THROWN_EXCEPTION: {
        bool allowed = isCallback(c.method, ON_UNCAUGHT_EXCEPTION) || inExit;
        bool typed = p.type.equals("Ljava/lang/Throwable;");
        checkRules(fail, {{allowed, "@ThrownException is only allowed in onUncaughtException() and onExit()"},
                          {typed, "parameter annotated with @ThrownException must be java.lang.Throwable"},
                          {!allowed || !typed || first(seen.thrown),
                           "parameter with @ThrownException annotation already exists"}});
        break;
    }
    case CPK_ON_ENTER_RESULT: {
        bool typed = c.onEnter != nullptr && p.type.equals(c.onEnter->getReturnType());
        checkRules(fail, {{!inEnter, "@OnEnterResult is not allowed in onEnter()"},
                          {c.onEnter != nullptr, "@OnEnterResult cannot be used unless you define onEnter()"},
                          {typed, "type of parameter annotated with @OnEnterResult and onEnter() return type must be the same"},
                          {inEnter || !typed || first(seen.enterResult),
                           "parameter with @OnEnterResult annotation already exists"}});
        break;
    }
    case CPK_METHOD_TIME_MS: {
        bool typed = p.type.equals("J");
        checkRules(fail, {{!inEnter, "@MethodTimeMs is not allowed in onEnter()"},
                          {typed, "parameter annotated with @MethodTimeMs must be long"},
                          {inEnter || !typed || first(seen.time), "parameter with @MethodTimeMs annotation already exists"}});
        break;
    }
    case CPK_METHOD_NAME:
    case CPK_METHOD_SIGNATURE:
    case CPK_METHOD_PARAMETER_TYPES:
        checkRules(fail, {{p.type.equals("Ljava/lang/String;"),
                           "parameters annotated with @MethodName and @MethodSignature must be of type java.lang.String"}});
        break;
    case CPK_CLASS_REF:
        checkRules(fail, {{p.type.equals("Ljava/lang/Class;"), "parameter annotated with @ClassRef must be of type java.lang.Class"}});
        break;
    default:
        Logger::error(ZString("unexpected callback parameter kind: ") + ZString::fromLong(p.kind), __FILE__, __LINE__);
    }
}

}  // namespace

// The parameters of one callback, checked; null for a null method or when the
// result is not OK (this class or an earlier one).
static CallbackParameters* createCallbackParameters(const ZString& className, const MethodInfo* method,
                                                    const MethodInfo* onEnter, ZString& instanceOf, bool hasInstanceOf,
                                                    ProbeCreationResult* result, bool discard) {
    if (method == nullptr) return nullptr;
    std::unique_ptr<CallbackParameters> parameters(new CallbackParameters());
    fillCallbackParameters(method, *parameters);
    CallbackContext c{className, method, onEnter, instanceOf, hasInstanceOf, discard};
    SeenKinds seen;
    for (int i = 0; i < parameters->getSize(); i++) checkParameter(c, (*parameters)[i], i, seen, result);
    bool exceptionRole = isCallback(method, ON_UNCAUGHT_EXCEPTION) || isCallback(method, ON_EXIT);
    if (discard && exceptionRole) {
        bool found = false;
        for (const CallbackParameter& p : *parameters) found = found || p.kind == CPK_THROWN_EXCEPTION;
        if (!found) {
            result->addError(className, method->getName(),
                             ZString("parameter with @ThrownException annotation is required but not found"));
        }
    }
    return result->isOK() ? parameters.release() : nullptr;
}

static bool hasKind(const CallbackParameters* parameters, CallbackParameterKind kind, const ZString* type = nullptr) {
    if (parameters == nullptr) return false;
    for (const CallbackParameter& p : *parameters) {
        if (p.kind == kind && (type == nullptr || p.type.equals(*type))) return true;
    }
    return false;
}

static void addExceptionsOf(const MethodInfo* method, ZVectorSafe<ZString>& exceptions) {
    if (method == nullptr) return;
    ZVectorSafe<ZString> declared;
    method->fillExceptions(declared);
    for (const ZString& name : declared) exceptions.pushOnce(name);
}

void Probes::createProbeDescriptor(const ZVector<unsigned char>* bytes, PROBE_STATUS status,
                                   ProbeCreationResult* result, ZString* className) {
    KZT_ASSERT_NOT_NULL(bytes);
    KZT_ASSERT_NOT_NULL(result);
    DataInput in(bytes->getElements(), bytes->getSize());
    std::unique_ptr<ClassFile> cf;
    try {
        cf.reset(new ClassFile(in));
    } catch (KZTRuntimeException&) {
        cf.reset();
    }
    if (cf == nullptr || cf->isInvalid()) {
        result->addError(ZString("invalid class file"));
        return;
    }

    ProbeClassAnnotations annotations;
    fillMethodPatterns(cf.get(), annotations);
    const ZString& signature = cf->getSignature();
    if (className != nullptr) *className = signature;
    ZString name = signature.replaceAll("/", ".");
    result->addScannedClass(name);
    ZVectorSafe<ZString> innerClasses;
    cf->fillInnerClassNames(innerClasses);
    ZString ownPrefix = signature + "$";
    for (const ZString& inner : innerClasses) {
        if (inner.startsWith(ownPrefix)) result->addInnerClassName(inner);
    }

    if (annotations.methodPatterns.isEmpty()) return;  // a helper of a probe
    if ((cf->getAccessFlags() & 0x0001) == 0) {
        result->addError(name, ZString("class must be public"));
        return;
    }

    // Callbacks by name; a second method of the same name is an error.
    bool multiple = false;
    MethodInfo* onEnter = cf->findFirstMethod(ZString(ON_ENTER), &multiple);
    if (multiple) return result->addError(name, ZString("more than one method onEnter()"));
    MethodInfo* onReturn = cf->findFirstMethod(ZString(ON_RETURN), &multiple);
    if (multiple) return result->addError(name, ZString("more than one method onReturn()"));
    MethodInfo* onUncaught = cf->findFirstMethod(ZString(ON_UNCAUGHT_EXCEPTION), &multiple);
    if (multiple) return result->addError(name, ZString("more than one method onUncaughtException()"));
    if (cf->findFirstMethod(ZString("onUncaughtExceptionExt"), nullptr) != nullptr) {
        return result->addError(name, ZString("onUncaughtExceptionExt() callback is not supported: use "
                                              "@DiscardThrownException annotation with either onExit() or "
                                              "onUncaughtException()"));
    }
    MethodInfo* onExit = cf->findFirstMethod(ZString(ON_EXIT), &multiple);
    if (multiple) return result->addError(name, ZString("more than one method onExit()"));

    if (onEnter == nullptr && onReturn == nullptr && onUncaught == nullptr && onExit == nullptr) {
        return result->addError(name, ZString("no callbacks found (onEnter(), onExit(), onReturn() or onUncaughtException())"));
    }
    if (onExit != nullptr && onUncaught != nullptr) {
        return result->addError(name, ZString("onExit() and onUncaughtException() callbacks cannot be used together"));
    }
    if (onExit != nullptr && onReturn != nullptr) {
        return result->addError(name, ZString("onExit() and onReturn() callbacks cannot be used together"));
    }
    bool discard = annotations.discardThrownException;
    if (discard && onExit == nullptr && onUncaught == nullptr) {
        return result->addError(name, ZString("@DiscardThrownException annotation can be used only when onExit() or "
                                              "onUncaughtException() callback is present"));
    }
    if (!discard && onUncaught != nullptr && !onUncaught->isVoid()) {
        return result->addError(name, ZString("onUncaughtException() callback must be void unless "
                                              "@DiscardThrownException annotation is present"));
    }

    ZString returnType;
    bool hasReturnValue = false;
    if (onExit != nullptr) {
        returnType = onExit->getReturnType();
        hasReturnValue = !returnType.equals("V");
    } else {
        ZString r = onReturn != nullptr ? onReturn->getReturnType() : ZString();
        ZString u = discard && onUncaught != nullptr ? onUncaught->getReturnType() : ZString();
        if (!r.isEmpty() && !r.equals("V")) {
            returnType = r;
            hasReturnValue = true;
        } else if (!u.isEmpty()) {
            returnType = u;
        }
        // A void onReturn beside a value-returning onUncaughtException is fine.
        if (!r.equals(u) && !r.isEmpty() && !r.equals("V") && !u.isEmpty()) {
            result->addError(name, ZString("onUncaughtException() and onReturn() callback return types are different"));
        }
    }
    if (returnType.equals("V")) returnType.clear();

    MethodInfo* callbacks[] = {onEnter, onReturn, onUncaught, onExit};
    for (MethodInfo* callback : callbacks) {
        if (callback != nullptr && !(callback->isPublic() && callback->isStatic())) {
            result->addError(name, callback->getName(), ZString("callback must be public static"));
        }
    }

    MethodInfo* returnCallback = onExit != nullptr ? onExit : onReturn;
    MethodInfo* exceptionCallback = onExit != nullptr ? onExit : onUncaught;
    if (exceptionCallback == nullptr && onEnter != nullptr && returnCallback != nullptr) {
        Logger::message(ZString("warning: probe class ") + name +
                        ": onEnter() and onReturn() without onUncaughtException(); consider using onExit()");
    }
    if (returnCallback == nullptr && onEnter != nullptr && exceptionCallback != nullptr) {
        Logger::message(ZString("warning: probe class ") + name +
                        ": onEnter() and onUncaughtException() without onReturn(); consider using onExit()");
    }

    bool hasInstanceOf = !annotations.instanceOf.isEmpty();
    ZString instanceOf = annotations.instanceOf;
    std::unique_ptr<CallbackParameters> enterParameters(
        createCallbackParameters(name, onEnter, nullptr, instanceOf, hasInstanceOf, result, false));
    std::unique_ptr<CallbackParameters> returnParameters(
        createCallbackParameters(name, returnCallback, onEnter, instanceOf, hasInstanceOf, result, discard));
    std::unique_ptr<CallbackParameters> exceptionParameters(
        createCallbackParameters(name, exceptionCallback, onEnter, instanceOf, hasInstanceOf, result, discard));
    if (instanceOf.equals("java/lang/Object")) instanceOf.clear();
    if (!result->isOK()) return;

    ZVectorSafe<ZString> exceptions;
    addExceptionsOf(onEnter, exceptions);
    addExceptionsOf(returnCallback, exceptions);
    addExceptionsOf(exceptionCallback, exceptions);

    if (hasReturnValue && !hasKind(returnParameters.get(), CPK_RETURN_VALUE, &returnType)) {
        result->addError(name, returnCallback->getName(),
                         ZString("parameter with @ReturnValue annotation and matching return type is required but not found"));
    }
    bool usesOnEnterResult = false;
    if (onEnter != nullptr && !onEnter->isVoid()) {
        usesOnEnterResult = hasKind(returnParameters.get(), CPK_ON_ENTER_RESULT) ||
                            hasKind(exceptionParameters.get(), CPK_ON_ENTER_RESULT);
        if (!usesOnEnterResult) {
            result->addError(name, ZString("onEnter()'s return value is not used; either use it via @OnEnterResult or "
                                           "make onEnter() void"));
        }
    }
    bool usesMethodTime =
        hasKind(returnParameters.get(), CPK_METHOD_TIME_MS) || hasKind(exceptionParameters.get(), CPK_METHOD_TIME_MS);
    if (!result->isOK()) return;

    auto descriptorOf = [](const MethodInfo* m) { return m != nullptr ? m->getDescriptor() : ZString(); };
    ProbeDescriptor* descriptor = new ProbeDescriptor(
        signature, descriptorOf(onEnter), descriptorOf(returnCallback), descriptorOf(exceptionCallback),
        enterParameters.release(), returnParameters.release(), exceptionParameters.release(), usesOnEnterResult,
        usesMethodTime, hasReturnValue, discard, returnType, instanceOf, exceptions, findOrCreateTopProbe(name),
        onExit != nullptr);
    descriptor->setStatus(status);
    result->addDescriptor(descriptor);

    if (!instanceOf.isEmpty()) descriptor->getRetransformList().push(instanceOf.replaceAll("/", "."));
    for (const ZString& retransform : annotations.retransformClasses) descriptor->getRetransformList().push(retransform.trim());

    bool anyClass = false;
    for (const ZString& written : annotations.methodPatterns) {
        ZString text = written.trim();
        bool negative = text.startsWith("-");
        if (negative) text = text.substring(1);
        ZString cls, method, parameters, returnPattern, classAnnotation, methodAnnotation;
        ZString error = SignatureUtil::parseMethodPattern(text, cls, method, parameters, returnPattern, classAnnotation,
                                                          methodAnnotation);
        if (!error.isEmpty()) {
            result->addError(name, error);
            continue;
        }
        descriptor->addMethodPattern(cls, method, parameters, returnPattern, classAnnotation, methodAnnotation, negative);
        // A method annotation narrows a pattern of every class as much as a class would.
        anyClass = anyClass || (cls.equals("*") && classAnnotation.isEmpty() && methodAnnotation.isEmpty());
    }
    if (anyClass && !descriptor->isCpuTracingSupport() && descriptor->getRetransformList().isEmpty()) {
        Logger::message(ZString("warning: possible performance issue: probe class pattern is \"*\", none of "
                                "@InstanceOf, @This, @RetransformIfInstanceOf specified: ") + name);
    }
}
