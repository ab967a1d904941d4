// The class load hook: every class that the JVM loads or redefines passes
// here on the loading thread. Quick exits by phase and name come first, then
// native wrapping, probes, tracing and allocation instrumentation. A failure
// anywhere leaves the class as it came.
#include <cstdlib>
#include <cstring>

#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "classfile/ClassFile.h"
#include "db/DB.h"
#include "db/SignatureNames.h"
#include "db/ZMethod.h"
#include "foundation/System.h"
#include "instrumentation/Instrumentation.h"
#include "instrumentation/NativeWrapping.h"

ZStringSet& ourClassesWithLargeMethods = *new ZStringSet();

static ClassLoadHookCounters ourCounters = {0, 0, 0};
static int ourDumpCounter = 0;

ClassLoadHookCounters getClassLoadHookCounters() { return ourCounters; }


// The JVM's phase, -1 without a JVMTI environment (tools, tests).
static int getPhase() {
    if (ourJVMTI == nullptr) return -1;
    jvmtiPhase phase = JVMTI_PHASE_DEAD;
    if (ourJVMTI->GetPhase(&phase) != JVMTI_ERROR_NONE) return -1;
    return phase;
}

static ZString phasePrefix() {
    int phase = getPhase();
    if (phase == JVMTI_PHASE_LIVE) return ZString();
    return ZString("[") + ZString::fromLong(phase) + "] ";
}

static void logClass(const ZString& name, const char* text) {
    Logger::message(phasePrefix() + text + ": " + name);
}

bool shouldNeverRetransform(const ZString& fullName) {
    if (fullName.startsWith("java.lang.invoke.LambdaForm") || fullName.contains("$$Lambda$")) {
        Logger::message(ZString("warning: special class will not be retransformed: ") + fullName);
        return true;
    }
    return false;
}

// The returned bytes belong to the JVM, which frees them by Deallocate.
static unsigned char* allocateClassBytes(int length) {
    if (ourJVMTI == nullptr) {
        unsigned char* bytes = (unsigned char*)malloc(length);
        if (bytes == nullptr) throw std::bad_alloc();
        return bytes;
    }
    return allocate(length);
}

// The buffer that classes are written into before they are handed over:
// kept from class to class (the hook runs under ourLock), so that writing
// a class neither grows nor fills it once it has seen a class as large.
static ZVector<unsigned char, 10>& writeBuffer() {
    static ZVector<unsigned char, 10>* buffer = new ZVector<unsigned char, 10>();
    return *buffer;
}

// Writes the class and hands the bytes over; returns them for a dump.
static const unsigned char* writeAndHandOver(ClassFile* cf, int* newLength, unsigned char** newBytes) {
    DataOutput out = DataOutput::reusing(writeBuffer());
    cf->writeClass(out);
    unsigned char* result = allocateClassBytes(out.getSize());
    memcpy(result, out.getData(), out.getSize());
    *newLength = out.getSize();
    *newBytes = result;
    return result;
}

static void dumpClass(const ZString& path, const unsigned char* bytes, int length) {
    FILE* file = z_fopen(path.c_str(), "wb");
    if (file == nullptr) {
        Logger::message(ZString("warning: debug: cannot dump ") + path);
        return;
    }
    fwrite(bytes, 1, length, file);
    fclose(file);
}

// The class parsed from the bytes. It keeps views into them, which the JVM
// holds for as long as the hook runs, and the holder does not outlive it.
class ParsedClass {
public:
    ParsedClass() : myClassFile(nullptr) {}
    ~ParsedClass() { delete myClassFile; }
    ParsedClass(const ParsedClass&) = delete;
    ParsedClass& operator=(const ParsedClass&) = delete;

    // False for bytes that are no class the toolkit can model.
    bool parse(const unsigned char* bytes, int length) {
        DataInput in(bytes, length);
        myClassFile = new ClassFile(in, true);
        return !myClassFile->isInvalid();
    }
    ClassFile* get() const { return myClassFile; }

private:
    ClassFile* myClassFile;
};

// Callback uses Unsafe, which is sun.misc.Unsafe in the class as compiled and
// jdk.internal.misc.Unsafe from Java 9 on.
static bool patchCallbackForJava9(const ZString& name, int length, const unsigned char* bytes, int* newLength,
                                  unsigned char** newBytes) {
    ParsedClass holder;
    if (!holder.parse(bytes, length)) {
        logClass(name, "invalid class");
        return false;
    }
    ZVectorSafe<ZString> from;
    ZVectorSafe<ZString> to;
    from.push("sun/misc/Unsafe");
    to.push("jdk/internal/misc/Unsafe");
    from.push("compareAndSwapLong");
    to.push("compareAndSetLong");
    holder.get()->patchConstantPool(from, to);
    writeAndHandOver(holder.get(), newLength, newBytes);
    return true;
}

static bool isAgentClass(const ZString& fullName, bool disabledProbe) {
    return fullName.startsWith(RUNTIME_PACKAGE_DOTTED) || fullName.startsWith("com.corvane.Natives") ||
           fullName.startsWith("com.corvane.Constants") || (!disabledProbe && fullName.startsWith(PROBES_PACKAGE_DOTTED));
}

static bool shouldLogTotals(int64_t processed, bool timesOn) {
    if (timesOn) return true;
    if (processed < 50000) return processed % 1000 == 0;
    if (processed < 500000) return processed % 5000 == 0;
    return processed % 100000 == 0;
}

// Tracing and allocation may no longer run in methods of a class that was
// dropped: their records lose the flags that say so.
static void forgetInstrumentedMethods(const LockHolder& lock, ClassFile* cf) {
    // The method records are found again by name only when they exist.
    if (ourDB == nullptr) return;
    ZString fullName = convertClassSignatureToFullName(cf->getSignature().c_str());
    ZString sourceFile = cf->getSourceName();
    ZVector<MethodInfo*, 10>& methods = cf->getMethods();
    for (int i = 0; i < methods.getSize(); i++) {
        MethodInfo* m = methods[i];
        const ZString& descriptor = m->getDescriptor();
        int id = ZMethod::getByName(lock, fullName, m->getName(), convertMethodSignatureToParameters(descriptor),
                                    getReturnTypeFromMethodSignature(descriptor), sourceFile, m->isNative());
        MethodRecord* record = ZMethod::getRecord(id);
        if (record != nullptr) record->myFlags &= ~(METHOD_FLAG_TRACED | METHOD_FLAG_PROBE_INSTRUMENTED);
    }
}

void classFileLoadHookHandlerImpl(const LockHolder& lock, const ZString& name, int length, const unsigned char* bytes,
                                  int* newLength, unsigned char** newBytes, bool wrapNatives,
                                  bool skipTracingAndAllocation) {
    if (ourVmDeathCalled || length == 0) return;
    int64_t start = getTimeNs();
    ZString fullName = name.replaceAll("/", ".");

    if (length < 4 || bytes[0] != 0xCA || bytes[1] != 0xFE || bytes[2] != 0xBA || bytes[3] != 0xBE) {
        logClass(name, "skipping non-CAFEBABE");
        return;
    }

    ZString dumpBase;
    ZString dumpDirectory = ourOptions.getInternalOption("_dump_classes");
    if (!dumpDirectory.isEmpty()) {
        z_mkdirs(dumpDirectory);
        dumpBase = dumpDirectory + "/" + name.replaceAll("/", "_") + "_" + ZString::fromLong(++ourDumpCounter);
        dumpClass(dumpBase + "_before.class", bytes, length);
    }

    bool timesOn = ourOptions.isDebug("bci_times");
    bool verbose = timesOn || ourOptions.isDebug("bci");

    if ((fullName.equals("sun.misc.Unsafe") || fullName.equals("jdk.internal.misc.Unsafe")) &&
        !ourOptions.isInternalOption("_no_FIX_20160425_1")) {
        if (verbose) logClass(name, "skipping (FIX_20160425_1)");
        return;
    }
    if (ourIsJava12orNewer && (fullName.equals("java.lang.Module$ReflectionData") || fullName.equals("java.lang.WeakPairMap")) &&
        !ourOptions.isInternalOption("_no_FIX_20190122")) {
        if (verbose) logClass(name, "skipping (FIX_20190122)");
        return;
    }

    bool disabledProbe = ourProbeJoint.isDisabledProbeClass != nullptr && ourProbeJoint.isDisabledProbeClass(lock, name);
    bool withTracing = (ourCapabilities.get() & CAPABILITY_TRACING) != 0;
    bool withAllocation = (ourCapabilities.get() & CAPABILITY_ALLOC_BCI) != 0;
    if (!withTracing && !withAllocation && !disabledProbe && !wrapNatives) {
        bool probeWanted = ourProbeJoint.isAnyProbeApplicable != nullptr && ourProbeJoint.isAnyProbeApplicable(lock, name, fullName);
        if (!probeWanted) return;
    }

    if (ourIsJava9orNewer && !ourOptions.isInternalOption("_force_sun_misc_Unsafe") && name.equals(CALLBACK_CLASS)) {
        patchCallbackForJava9(name, length, bytes, newLength, newBytes);
        return;
    }
    if (isAgentClass(fullName, disabledProbe)) return;
    if (isAttaching() && !ourVmInitCalled) {
        logClass(name, "no init yet");
        return;
    }

    ParsedClass holder;
    if (!holder.parse(bytes, length)) {
        logClass(name, "invalid class");
        return;
    }
    ClassFile* cf = holder.get();
    if (cf->getMajorVersion() < 52 && (cf->getAccessFlags() & 0x200) != 0) return;

    bool changed = false;
    if (wrapNatives && wrapNativeMethods(lock, cf)) {
        if (isAttaching() || ourIsJava9orNewer) {
            ourNamesOfClassesWithWrappedNatives.add(name);
            if (verbose) Logger::message(ZString("h_w_m: remember wrapped: ") + name);
        }
        changed = true;
    }

    bool probesChanged = false;
    if (disabledProbe) {
        if (ourProbeJoint.applyProbes != nullptr) ourProbeJoint.applyProbes(lock, cf, fullName, true);
        changed = true;
    } else if (!fullName.startsWith(PROBES_PACKAGE_DOTTED) && ourProbeJoint.applyProbes != nullptr) {
        probesChanged = ourProbeJoint.applyProbes(lock, cf, fullName, false);
        changed = changed || probesChanged;
    }

    bool tooLong = false;
    bool retry = false;
    if (!disabledProbe && !skipTracingAndAllocation && (withTracing || withAllocation)) {
        // Worth a second try without tracing only when probes have something to keep.
        retry = probesChanged && cf->getConstantPool()->getSize() < 65536;
        if (instrumentForTracingAndAllocation(lock, cf, &tooLong, withAllocation, withTracing)) changed = true;
    }
    if (tooLong) {
        Logger::message("warning: bytecode too long after T&A");
    } else if (changed && cf->getConstantPool()->getSize() >= 65536) {
        tooLong = true;
        Logger::message("warning: resulting constant pool is too big");
    }

    if (!tooLong) {
        int64_t spent = getTimeNs() - start;
        if (verbose) {
            ZString line = phasePrefix() + fullName;
            if (spent >= 1000000) line += ZString(" ") + ZString::fromLong(spent / 1000000) + "ms";
            if (!changed) line += " SAME";
            Logger::message(line);
        }
        ourCounters.myTotalTimeNs += spent;
        ourCounters.myProcessed++;
        if (changed) ourCounters.myInstrumented++;
        if (shouldLogTotals(ourCounters.myProcessed, timesOn)) {
            Logger::messageWithStats(ZString("total classes: processed=") + ZString::fromLong(ourCounters.myProcessed) +
                                     " instrumented=" + ZString::fromLong(ourCounters.myInstrumented) + " " +
                                     ZString::nanosAsMs(ourCounters.myTotalTimeNs));
        }
        if (changed) {
            const unsigned char* written = writeAndHandOver(cf, newLength, newBytes);
            if (!dumpBase.isEmpty()) dumpClass(dumpBase + ".class", written, *newLength);
        }
        return;
    }

    forgetInstrumentedMethods(lock, cf);
    if (retry) {
        logClass(name, "warning: trying to proceed with skipping BCI for tracing and allocations");
        KZT_ASSERT(!skipTracingAndAllocation);
        classFileLoadHookHandlerImpl(lock, name, length, bytes, newLength, newBytes, wrapNatives, true);
    }
}

// Natives stay unwrapped in a class that the JVM holds unwrapped: a
// redefinition can neither add nor remove methods.
static bool shouldWrapNatives(jvmtiEnv* jvmti, jclass classBeingRedefined, const ZString& name, bool verbose) {
    if (ourOptions.isNativesDisabled()) return false;
    if (classBeingRedefined == nullptr || !(isAttaching() || ourIsJava9orNewer)) return true;
    if (!ourNamesOfClassesWithWrappedNatives.contains(name)) return false;
    jint count = 0;
    JvmtiMemory<jmethodID> methods;
    jvmtiError error = jvmti->GetClassMethods(classBeingRedefined, &count, methods.out());
    if (error != JVMTI_ERROR_NONE) {
        if (verbose)
            Logger::message(ZString("warning: h_w_m: redefining ") + name + ": failed to obtain methods: " +
                            ZString::fromLong(error));
        return false;
    }
    bool wrap = false;
    for (int i = 0; i < count && !wrap; i++) {
        jint modifiers = 0;
        if (jvmti->GetMethodModifiers(methods.get()[i], &modifiers) != JVMTI_ERROR_NONE || (modifiers & 0x100) == 0) continue;
        JvmtiMemory<char> methodName;
        if (jvmti->GetMethodName(methods.get()[i], methodName.out(), nullptr, nullptr) != JVMTI_ERROR_NONE) continue;
        wrap = methodName.get() != nullptr && strstr(methodName.get(), NATIVE_METHOD_PREFIX) != nullptr;
    }
    if (verbose) Logger::message(ZString("h_w_m: redefining ") + name + ": shouldWrap=" + (wrap ? "true" : "false"));
    return wrap;
}

void classFileLoadHook(jvmtiEnv* jvmti, JNIEnv* env, jclass classBeingRedefined, const char* name, jint length,
                       const unsigned char* bytes, jint* newLength, unsigned char** newBytes) {
    LockHolder holder(&ourLock, LOCK_SITE);
    *newLength = 0;
    *newBytes = nullptr;
    bool bci = ourOptions.isDebug("bci");
    int phase = getPhase();
    if (ourIsJava9orNewer && phase == JVMTI_PHASE_PRIMORDIAL) {
        if (bci) Logger::message(ZString("ClassFileLoadHook: [2] ") + (name != nullptr ? name : "NULL") + " - skipped early class");
        return;
    }
    if (bci) Logger::message(ZString("ClassFileLoadHook: [") + ZString::fromLong(phase) + "] " + (name != nullptr ? name : "NULL"));
    ZString className(name != nullptr ? name : "NULL");
    try {
        if (name == nullptr) {
            if (classBeingRedefined != nullptr) {
                Logger::error("NULL class name is unexpected for a class being redefined", __FILE__, __LINE__);
            }
            ParsedClass parsed;
            if (!parsed.parse(bytes, length)) {
                logClass(className, "invalid class");
                return;
            }
            className = parsed.get()->getSignature();
        }
        bool wrapNatives = shouldWrapNatives(jvmti, classBeingRedefined, className, bci);
        int resultLength = 0;
        unsigned char* result = nullptr;
        classFileLoadHookHandlerImpl(holder, className, length, bytes, &resultLength, &result, wrapNatives, false);
        *newLength = resultLength;
        *newBytes = result;
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
        Logger::message(ZString("warning: the previous exception happened while processing ") + className);
        *newLength = 0;
        *newBytes = nullptr;
    }
}
