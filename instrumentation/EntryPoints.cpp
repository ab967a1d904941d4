// The natives at the end of the Callback stubs, and the first decisions on
// an allocated object. The method natives run on every traced call: no lock,
// no allocation.
#include "agent/AgentState.h"
#include "agent/JvmGlue.h"
#include "agent/Logger.h"
#include "db/ZMethod.h"
#include "instrumentation/Instrumentation.h"
#include "recording/ThreadInfo.h"

static const uint64_t CPU_MODE_MASK = 0x100c;
static const uint64_t CPU_TRACING = 0xc;
static const int ADAPTIVE_TRACING_CACHE_CAPACITY = 8000000;
// Entry results: nothing known, and not traced; anything else is a ThreadInfo.
static const jlong ENTRY_RESULT_UNKNOWN = 0;
static const jlong ENTRY_RESULT_NOT_TRACED = 1;

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
        jclass found = findClass(env, "com/corvane/runtime/Core");
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
    uint64_t mode = ourStatus & 0x6002;
    bool heapCounting = mode == 0x4002 && (ourCapabilities & CAP_HEAP_SAMPLING) != 0;
    // Object counting without heap sampling does all its work in Java.
    if (!heapCounting && mode != 0x2 && mode != 0x2002) return cachedFrame;
    if (ourRecordingJoint.recordAllocation == nullptr) return cachedFrame;
    return ourRecordingJoint.recordAllocation(env, object, klass, size, cachedFrame, classMethodId, line);
}

jlong kztMethodEntryImpl(JNIEnv* env, jint methodId) {
    if ((ourStatus & CPU_MODE_MASK) != CPU_TRACING || !isLive()) return ENTRY_RESULT_UNKNOWN;
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
    ThreadInfo* info = entryResult < 2 ? currentTracedThread(env) : (ThreadInfo*)(intptr_t)entryResult;
    if (info == nullptr || info->isExcludedFromTracing()) return;
    info->onMethodExit(env, methodId);
}

void kztMethodLineImpl(JNIEnv* env, jint line) {
    ThreadInfo* info = currentTracedThread(env);
    if (info != nullptr) info->setPendingLine(line);
}

jbyteArray patchTemplateClassImpl(JNIEnv* env, jobjectArray macroAndValuePairs) {
    if (macroAndValuePairs == nullptr) {
        throwException(env, "macroAndValuePairs is null");
        return nullptr;
    }
    ZVectorSafe<ZString> pairs;
    fillStringVectorFromJArray(env, macroAndValuePairs, pairs);
    ZVectorSafe<ZString> from;
    ZVectorSafe<ZString> to;
    for (int i = 0; i + 1 < pairs.getSize(); i += 2) {
        from.push(pairs[i]);
        to.push(pairs[i + 1]);
    }
    ZVector<unsigned char, 10> written(4096);
    if (!patchTemplateClass(from, to, written)) {
        throwException(env, "method listener template is invalid");
        return nullptr;
    }
    return newJByteArray(env, written.getElements(), written.getSize());
}
