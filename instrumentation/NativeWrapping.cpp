// Native method wrapping. The wrapper is an ordinary method with no branches:
// it loads its arguments, calls the renamed native and returns its result,
// and later steps of the hook instrument it like any other method.
#include "instrumentation/NativeWrapping.h"

#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "services/SharedConstants.h"
#include "classfile/ByteCodeGenerator.h"
#include "classfile/ClassFile.h"
#include "db/DB.h"
#include "db/SignatureNames.h"
#include "db/ZMethod.h"
#include "foundation/System.h"

ZStringSet& ourNamesOfClassesWithWrappedNatives = *new ZStringSet();

static const char* const DEFAULT_EXCLUDED_CLASSES =
    "java/lang/ClassLoader\n"
    "java/lang/Throwable\n"
    "sun/reflect/\n"
    "java/lang/invoke/\n"
    "java/lang/Double\n"
    "java/lang/Float\n"
    "java/lang/Class\n"
    "java/lang/SecurityManager\n"
    "java/security/AccessController\n"
    "sun/misc/Unsafe\n"
    "jdk/internal/misc/Unsafe\n"
    "java/util/ResourceBundle\n"
    "com/ibm/oti/vm\n";

// Intrinsic candidates are marked by this annotation up to Java 15 and by
// the second one from Java 16 on.
static const char* const INTRINSIC_CANDIDATE = "Ljdk/internal/HotSpotIntrinsicCandidate;";
static const char* const INTRINSIC_CANDIDATE_16 = "Ljdk/internal/vm/annotation/IntrinsicCandidate;";

// The options that steer wrapping, read once at the first class.
struct WrappingFlags {
    bool wrapWait;
    bool wrapCurrentTimeMillis;
    bool wrapNanoTime;
    bool wrapIntrinsicCandidates;
    bool debugIntrinsicCandidates;
    bool log;
};

static const WrappingFlags& wrappingFlags(const LockHolder&) {
    static WrappingFlags flags = [] {
        WrappingFlags f;
        f.wrapWait = !(ourIsIbm && !ourIsOpenJ9) || ourOptions.isInternalOption("_with_wait");
        f.wrapCurrentTimeMillis = !ourOptions.isInternalOption("_skip_currentTimeMillis");
        f.wrapNanoTime = ourOptions.isInternalOption("_with_nanoTime");
        f.wrapIntrinsicCandidates = ourOptions.isInternalOption("_with_intrinsic_candidates");
        f.debugIntrinsicCandidates = ourOptions.isDebug("intrinsic_candidates");
        f.log = ourOptions.isDebug("bci");
        return f;
    }();
    return flags;
}

bool isClassExcludedFromNativeWrapping(const LockHolder&, const ZString& className) {
    static ZVectorSafe<ZString>* prefixes = [] {
        ZVectorSafe<ZString>* list = new ZVectorSafe<ZString>();
        splitConfigFile(list, readConfigFromFile(ZString(), "disable_natives.txt", DEFAULT_EXCLUDED_CLASSES));
        return list;
    }();
    for (int i = 0; i < prefixes->getSize(); i++) {
        if (className.startsWith((*prefixes)[i])) return true;
    }
    return false;
}

static void logSkippedNative(const WrappingFlags& flags, MethodInfo* method, const char* reason) {
    if (!flags.log) return;
    ZString line = ZString("-n ") + method->getName();
    if (reason != nullptr) line += ZString(" ") + reason;
    Logger::message(line);
}

static void logSkippedNatives(const WrappingFlags& flags, ClassFile* cf) {
    if (!flags.log) return;
    ZVector<MethodInfo*, 10>& methods = cf->getMethods();
    for (int i = 0; i < methods.getSize(); i++) {
        if (methods[i]->isNative()) {
            Logger::message("-n");
            return;
        }
    }
}

enum NativeRule { SKIP, WRAP, WRAP_MUST };

// Which natives of the core classes may be wrapped at all.
static NativeRule ruleFor(const WrappingFlags& flags, const ZString& c, const ZString& m) {
    if (c.equals("java/lang/System")) {
        if (ourIsIbm) return SKIP;
        if (m.equals("arraycopy")) return WRAP_MUST;
        if (m.equals("currentTimeMillis")) return flags.wrapCurrentTimeMillis ? WRAP_MUST : SKIP;
        if (m.equals("nanoTime")) return flags.wrapNanoTime ? WRAP_MUST : SKIP;
        return SKIP;
    }
    if (c.equals("java/lang/Object")) {
        if (!m.equals("wait") || !flags.wrapWait) return SKIP;
    }
    if (c.startsWith("java/lang/") && m.equals("registerNatives")) return SKIP;
    if (ourIsIbm && (c.equals("java/lang/String") || c.startsWith("java/lang/reflect"))) return SKIP;
    if (c.equals("java/lang/Thread") &&
        (m.equals("isInterrupted") || m.equals("interruptedImpl") || m.equals("currentThread"))) {
        return SKIP;
    }
    return WRAP;
}

// Whether the rules let an intrinsic candidate be wrapped; logs the decision.
static bool passesIntrinsicTest(const WrappingFlags& flags, MethodInfo* method, bool must) {
    if (flags.wrapIntrinsicCandidates && !flags.debugIntrinsicCandidates && !flags.log) return true;
    if (!method->hasMatchingAnnotation(INTRINSIC_CANDIDATE) && !method->hasMatchingAnnotation(INTRINSIC_CANDIDATE_16)) {
        return true;
    }
    if (!flags.wrapIntrinsicCandidates && !must) {
        logSkippedNative(flags, method, "intrinsicCandidate");
        return false;
    }
    if (flags.log || flags.debugIntrinsicCandidates) Logger::message(ZString("intrinsicCandidate: ") + method->getName());
    return true;
}

bool wrapNativeMethods(const LockHolder& lock, ClassFile* cf) {
    const WrappingFlags& flags = wrappingFlags(lock);
    ZString className = cf->getSignature();
    if (isClassExcludedFromNativeWrapping(lock, className)) {
        logSkippedNatives(flags, cf);
        return false;
    }
    ZString fullName = convertClassSignatureToFullName(className.c_str());
    ZString sourceFile = cf->getSourceName();
    bool wrapped = false;
    // Wrapping adds methods: only those the class came with are looked at.
    int count = cf->getMethods().getSize();
    for (int i = 0; i < count; i++) {
        MethodInfo* m = cf->getMethods()[i];
        if (!m->isNative()) continue;
        ZString name = m->getName();
        NativeRule rule = ruleFor(flags, className, name);
        if (rule == SKIP) {
            logSkippedNative(flags, m, nullptr);
            continue;
        }
        if (!passesIntrinsicTest(flags, m, rule == WRAP_MUST)) continue;
        if (flags.log) Logger::message(ZString("N ") + name);
        instrumentNativeMethod(cf, m);
        if (ourDB != nullptr) {
            ZString descriptor = m->getDescriptor();
            ZMethod::getByName(lock, fullName, name, convertMethodSignatureToParameters(descriptor),
                               getReturnTypeFromMethodSignature(descriptor), sourceFile, true);
        }
        wrapped = true;
    }
    return wrapped;
}

// The return instruction by the descriptor's end, and the slots of the value.
static int returnSlots(const ZString& returnType) {
    char kind = returnType.isEmpty() ? 'V' : returnType[0];
    if (kind == 'V') return 0;
    return kind == 'J' || kind == 'D' ? 2 : 1;
}

void instrumentNativeMethod(ClassFile* cf, MethodInfo* m) {
    KZT_ASSERT(m->getCodeAttribute() == nullptr);
    // Copies: adding to the pool may move the texts.
    ZString name = m->getName();
    ZString descriptor = m->getDescriptor();
    int access = m->getAccessFlags();
    bool isStatic = (access & 0x0008) != 0;

    ZString newName = ZString(NATIVE_METHOD_PREFIX) + name;
    cf->findOrCreateMethod(newName, descriptor, access);
    int nameIndex = cf->findOrCreateUtf8(newName);
    int descriptorIndex = cf->findOrCreateUtf8(descriptor);
    int ref = cf->findOrCreateMethodRef(cf->getThisClass(), nameIndex, descriptorIndex);

    ByteCodeGenerator gen;
    int slots = 0;
    if (!isStatic) gen.aload(slots++);
    ZVectorSafe<ZString> parameters;
    MethodInfo::getParameterTypesBySignature(descriptor, parameters);
    for (int i = 0; i < parameters.getSize(); i++) {
        switch (parameters[i][0]) {
        case 'J': case 'D': case 'L': case '[': case 'F': case 'I': case 'Z': case 'B': case 'C': case 'S':
            gen.load(parameters[i], slots);
            slots += parameters[i][0] == 'J' || parameters[i][0] == 'D' ? 2 : 1;
            break;
        default:
            failFatal((ZString("Invalid descriptor: ") + descriptor).c_str(), __FILE__, __LINE__);
        }
    }
    if (isStatic) gen.invokestatic(ref);
    else if (m->isPrivate()) gen.invokespecial(ref);
    else gen.invokevirtual(ref);
    ZString returnType = m->getReturnType();
    gen.typedReturn(returnType);

    m->makeNotNative();
    CodeAttribute* code = m->createCodeAttribute();
    int returned = returnSlots(returnType);
    code->incMaxStackCount(returned > slots ? returned : slots);
    code->incMaxLocalsCount(slots);
    m->parseStackMapTable(cf);
    gen.applyTo(code);
}
