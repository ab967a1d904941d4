#include "recording/EntryPoints.h"

#include "db/ZMethod.h"
#include "recording/AllocationRecording.h"
#include "recording/CpuTracing.h"
#include "recording/ThreadInfo.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

// The live phase, from the flags the load sequence keeps: asking JVMTI for
// the phase on every traced call would cost more than the call itself.
static bool isLive() {
    return ourVmInitCalled && !ourVmDeathCalled;
}

// From then on the Java side filters the method without a native call.
static void excludeByAdaptiveTracing(JNIEnv* env, int methodId) {
    static jclass coreClass = nullptr;
    static jmethodID exclude = nullptr;
    if (exclude == nullptr) {
        jclass found = findClass(env, CORE_CLASS);
        jmethodID method = env->GetStaticMethodID(found, "excludeByAdaptiveTracing", "(I)V");
        assertJni(env);
        coreClass = (jclass)env->NewGlobalRef(found);
        env->DeleteLocalRef(found);
        exclude = method;
    }
    env->CallStaticVoidMethod(coreClass, exclude, (jint)methodId);
    assertJni(env);
}

static ThreadInfo* currentTracedThread(JNIEnv* env) {
    ThreadInfo* info = getThreadInfoJvmti(env, nullptr);
    return info != nullptr && !info->isExcludedFromTracing() ? info : nullptr;
}

jint kztInitImpl(JNIEnv* env, jobject object, jclass klass, jlong size, jint cachedFrame, jint classMethodId, jint line) {
    uint64_t mode = ourStatus.get() & ALLOCATION_RECORDING_MASK;
    bool heapCounting = mode == ALLOCATION_RECORDING_OBJECT_COUNTING && ourCapabilities.hasAny(CAPABILITY_HEAP_SAMPLING);
    // Object counting without heap sampling does all its work in Java.
    if (!heapCounting && mode != ALLOCATION_RECORDING_EXACT_STACKS && mode != ALLOCATION_RECORDING_SAMPLED_STACKS)
        return cachedFrame;
    // Lines above 32767 come as negative shorts.
    if (line < 0) line &= 0xFFFF;
    return AllocationRecording::recordObject(env, object, klass, size, cachedFrame, classMethodId, line, mode);
}

jlong kztMethodEntryImpl(JNIEnv* env, jint methodId) {
    if ((ourStatus.get() & CPU_PROFILING_MASK) != CPU_TRACING || !isLive()) return ENTRY_RESULT_UNKNOWN;
    if ((ZMethod::getFlags(methodId) & METHOD_FLAG_EXCLUDED) != 0) {
        if (methodId < ADAPTIVE_TRACING_CACHE_CAPACITY) excludeByAdaptiveTracing(env, methodId);
        return ENTRY_RESULT_NOT_TRACED;
    }
    ThreadInfo* info = currentTracedThread(env);
    if (info == nullptr) return ENTRY_RESULT_NOT_TRACED;
    info->onMethodEntry(env, methodId);
    return (jlong)(intptr_t)info;
}

// Accepts every entry result: a stub swapped during the call may hand over
// the result of an older variant.
void kztMethodExitImpl(JNIEnv* env, jint methodId, jlong entryResult) {
    if ((ourStatus.get() & CPU_PROFILING_MASK) != CPU_TRACING || !isLive()) return;
    ThreadInfo* info = entryResult < 2 ? currentTracedThread(env) : (ThreadInfo*)(intptr_t)entryResult;
    if (info == nullptr || info->isExcludedFromTracing()) return;
    info->onMethodExit(env, methodId);
}

void kztMethodLineImpl(JNIEnv* env, jint line) {
    ThreadInfo* info = currentTracedThread(env);
    if (info != nullptr) info->setPendingLine(line);
}
