// The CPU mode switches and the simple status switches, as natives of
// com.corvane.runtime.Callback. Every switch takes ourLock; work that needs
// running Java (setting up tracing, redefining the callback class) is done
// outside it.
#include "agent/ModeControl.h"
#include "probes/ClassLoadingProbe.h"
#include "probes/Probes.h"

#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "agent/NativeTable.h"
#include "services/Options.h"
#include "db/DB.h"
#include "foundation/UptimeProvider.h"
#include "instrumentation/Instrumentation.h"
#include "recording/CountingSupport.h"
#include "recording/CpuProfilingSettings.h"
#include "recording/CpuTracing.h"
#include "recording/Sampling.h"
#include "recording/SamplingSettings.h"
#include "recording/ThreadInfo.h"
#include "recording/TracingSettings.h"
#include "snapshot/TableStream.h"


#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

static const char* cpuModeDisplayName(int64_t mode) {
    if (mode == (int64_t)CPU_TRACING) return "CPU tracing";
    if (mode == (int64_t)CPU_CALL_COUNTING) return "Call counting";
    return "CPU sampling";
}

static const char* cpuModeLowerCaseName(int64_t mode) {
    if (mode == (int64_t)CPU_TRACING) return "CPU tracing";
    if (mode == (int64_t)CPU_CALL_COUNTING) return "call counting";
    return "CPU sampling";
}

// Java half: makes Unsafe ready for the line stubs; false without it.
static bool setupTracingInJava(JNIEnv* env) {
    jclass core = env->FindClass(CORE_CLASS);
    jmethodID setup = core != nullptr ? env->GetStaticMethodID(core, "setupTracing", "()Z") : nullptr;
    if (setup == nullptr) {
        env->ExceptionClear();
        if (core != nullptr) env->DeleteLocalRef(core);
        return false;
    }
    jboolean result = env->CallStaticBooleanMethod(core, setup);
    if (env->ExceptionCheck()) {
        env->ExceptionClear();
        result = JNI_FALSE;
    }
    env->DeleteLocalRef(core);
    return result == JNI_TRUE;
}

static ZString startCpuProfilingImpl(JNIEnv* env, int64_t mode, const ZString* settings) {
    bool tracing = mode == (int64_t)CPU_TRACING;
    bool counting = mode == (int64_t)CPU_CALL_COUNTING;
    // Java counts calls through Unsafe.
    if (counting && !CountingSupportBase::ensureUnsafeCreated(NoLock(), env))
        return ZString("call counting is not available in this JVM");
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        CpuTracingPseudoLockScope pseudoLock(lock);
        uint64_t running = ourStatus.get() & CPU_PROFILING_MASK;
        // Modes exclude each other: a second start is refused, not switched.
        if (running == CPU_CALL_COUNTING) return ZString("CPU profiling (call counting) already started");
        if (running == CPU_TRACING) return ZString("CPU profiling (tracing) already started");
        if (running != 0) return ZString("CPU profiling (sampling) already started");
        // Sampling settings are read once, by the sampler's start: they take
        // effect only when it has started.
        SamplingSettings samplingSettings;
        if (!tracing) {
            ZString error = ourJavaSampling.startSamplerForCpu(lock, env, mode & (int64_t)SAMPLING_MODE_MASK, settings,
                                                                &samplingSettings);
            if (!error.isEmpty()) return error;
        }
        CpuTracing::clearCpuDataImpl(lock);
        if (tracing) readCpuProfilingSettingsAndReloadFilters(lock, (uint64_t)mode, settings);
        else applySamplingSettingsAndReloadFilters(lock, (uint64_t)mode, samplingSettings);
        ourStatus.set((ourStatus.get() & ~(CPU_PROFILING_MASK | SAMPLING_MODE_MASK)) | (uint64_t)mode);
        ourLastCpuProfilingMode = mode;
        ourCpuTracingGeneration = ourCpuTracingGeneration + 1;
    }
    if (tracing) {
        Logger::message("Setting up tracing...");
        ourTracingCanSetLineNumbers = setupTracingInJava(env);
        if (!ourTracingCanSetLineNumbers) Logger::message("warning: lines not available (no Unsafe)");
        retransformClassesWithLargeMethods(env);
    }
    if (tracing || counting) {
        {
            LockHolder lock(&ourLock, LOCK_SITE);
            redefineCallback(env);
        }
    }
    // Probes in mode auto get their callbacks back.
    if (Probes::isModeAutoProbesActive()) Probes::retransformAutoProbes(env);
    if (tracing || counting) retransformClassesLoadedBeforeAgentAttached(env);
    return ZString();
}

ZString startCpuProfiling(JNIEnv* env, int64_t mode, const ZString* settings) {
    bool valid = (mode & ~(int64_t)SAMPLING_MODE_MASK) == (int64_t)CPU_SAMPLING || mode == (int64_t)CPU_TRACING ||
                 mode == (int64_t)CPU_CALL_COUNTING;
    if (!valid) return ZString("Invalid mode: ") + ZString::fromLong(mode);
    bool instrumented = mode == (int64_t)CPU_TRACING || mode == (int64_t)CPU_CALL_COUNTING;
    if (instrumented && (ourCapabilities.get() & CAPABILITY_TRACING) == 0) {
        return ZString(cpuModeDisplayName(mode)) + " was disabled with startup option 'disabletracing' or 'disableall'";
    }
    ZString failure = startCpuProfilingImpl(env, mode, settings);
    if (!failure.isEmpty()) {
        ZString text = ZString("Cannot start ") + cpuModeLowerCaseName(mode) + ": " + failure;
        Logger::message(text);
        return text;
    }
    Logger::message(ZString(cpuModeDisplayName(mode)) + " started");
    return ZString();
}

void stopCpuProfiling(JNIEnv* env, bool force) {
    uint64_t running;
    bool autoProbesWereActive = Probes::isModeAutoProbesActive();
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        CpuTracingPseudoLockScope pseudoLock(lock);
        running = ourStatus.get() & CPU_PROFILING_MASK;
        if (running == 0) return;
        ourCpuProfilingStopNs = ourUptimeProvider.getUptimeNs();
        CpuTracing::stopTracingThreads(lock);
        if (running == CPU_SAMPLING) ourJavaSampling.stopSampler(lock);
        ourStatus.remove(CPU_PROFILING_MASK | SAMPLING_MODE_MASK);
        if (running == CPU_TRACING || running == CPU_CALL_COUNTING) redefineCallback(env);
    }
    // Line calls of the largest methods go with tracing.
    if (running == CPU_TRACING) retransformClassesWithLargeMethods(env);
    // Probes in mode auto are emptied again.
    if (autoProbesWereActive && !Probes::isModeAutoProbesActive()) Probes::retransformAutoProbes(env);
    Logger::message("CPU profiling stopped");
}


void clearChartsDataImpl(const LockHolder& lock) {
    DB* db = KZT_DB();
    TelemetryTable* table = db->getTelemetryTable();
    table->clearTable();
    db->markTableCleared(TABLE_TELE);
    db->setProperty(lock, "kzt.telemetry.new.start.index", (int)table->getWritePosition());
}

static void switchStatusBit(uint64_t bit, bool on, const char* message) {
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        if (on) ourStatus.add(bit);
        else ourStatus.remove(bit);
    }
    Logger::message(message);
}

extern "C" {

JNIEXPORT jstring JNICALL NATIVE(startCpuProfiling)(JNIEnv* env, jclass, jlong mode, jstring jsettings) {
    KZT_NATIVE_BEGIN
    ZString settings = createZS(env, jsettings);
    ZString result = startCpuProfiling(env, mode, jsettings != nullptr ? &settings : nullptr);
    return result.isEmpty() ? nullptr : newJavaString(env, result);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT void JNICALL NATIVE(stopCpuProfiling)(JNIEnv* env, jclass, jboolean force) {
    KZT_NATIVE_BEGIN
    stopCpuProfiling(env, force == JNI_TRUE);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(clearCpuData)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        CpuTracing::clearCpuDataImpl(lock);
    }
    Logger::message("CPU profiling data cleared");
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(advanceGeneration)(JNIEnv* env, jclass, jstring description) {
    KZT_NATIVE_BEGIN
    ZString text = createZS(env, description);
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        Generations::advanceGeneration(lock, text);
    }
    Logger::message("Generation advanced");
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(startStackTelemetry)(JNIEnv* env, jclass) {
    switchStatusBit(STACK_TELEMETRY, true, "Stack telemetry started");
}

JNIEXPORT void JNICALL NATIVE(stopStackTelemetry)(JNIEnv* env, jclass) {
    switchStatusBit(STACK_TELEMETRY, false, "Stack telemetry stopped");
}

JNIEXPORT void JNICALL NATIVE(startExceptionProfiling)(JNIEnv* env, jclass) {
    switchStatusBit(EXCEPTION_PROFILING, true, "Exception profiling started");
}

JNIEXPORT void JNICALL NATIVE(stopExceptionProfiling)(JNIEnv* env, jclass) {
    switchStatusBit(EXCEPTION_PROFILING, false, "Exception profiling stopped");
}

JNIEXPORT void JNICALL NATIVE(storeTelemetryRecord)(JNIEnv* env, jclass, jintArray jconstants, jintArray jvalues,
                                                   jintArray jkeys, jintArray jcustomValues) {
    KZT_NATIVE_BEGIN
    ZVector<int> constants, values, keys, customValues;
    fillVectorFromJArray(env, jconstants, constants);
    fillVectorFromJArray(env, jvalues, values);
    fillVectorFromJArray(env, jkeys, keys);
    fillVectorFromJArray(env, jcustomValues, customValues);
    LockHolder lock(&ourLock, LOCK_SITE);
    if (ourDB == nullptr) {
        throwException(env, "must run with the profiler agent");
        return;
    }
    if (ourOptions.isInternalOption("_crash_in_telemetry")) {
        Logger::error("forced crash (_crash_in_telemetry)", __FILE__, __LINE__);
    }
    ClassLoadingProbe::flushUnloadedClassesToDB(lock);
    bool threadStates = (ourStatus.get() & STACK_TELEMETRY) != 0;
    TelemetryRecord* row = ourDB->storeTelemetrySample(lock, constants, values, keys, customValues, threadStates);
    if (threadStates) sampleThreadStatesJVMTI(lock, env, row);
    KZT_NATIVE_END(env, )
}

}  // extern "C"

static const JNINativeMethod ourModeControlRows[] = {
    KZT_NATIVE_ROW(advanceGeneration, "(Ljava/lang/String;)V"),
    KZT_NATIVE_ROW(clearCpuData, "()V"),
    KZT_NATIVE_ROW(startCpuProfiling, "(JLjava/lang/String;)Ljava/lang/String;"),
    KZT_NATIVE_ROW(startExceptionProfiling, "()V"),
    KZT_NATIVE_ROW(startStackTelemetry, "()V"),
    KZT_NATIVE_ROW(stopCpuProfiling, "(Z)V"),
    KZT_NATIVE_ROW(stopExceptionProfiling, "()V"),
    KZT_NATIVE_ROW(stopStackTelemetry, "()V"),
    KZT_NATIVE_ROW(storeTelemetryRecord, "([I[I[I[I)V"),
};

KZT_NATIVE_GROUP(ourModeControlNatives, ourModeControlRows);
