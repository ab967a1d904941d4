// Natives that ask about or adjust the calling thread's tracing state.
#include "services/JvmGlue.h"
#include "agent/NativeTable.h"
#include "recording/CpuTracing.h"
#include "recording/ThreadInfo.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

extern "C" {

// The thread's frames end without exits: its next method event sends a stack.
JNIEXPORT void JNICALL NATIVE(onUncaughtException)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    if (!isCpuTracingActive()) return;
    ThreadInfo* thread = getThreadInfoJvmti(env, nullptr);
    if (thread != nullptr) thread->clearTracingEventWords();
    KZT_NATIVE_END(env, )
}

JNIEXPORT jboolean JNICALL NATIVE(shouldSkipThread)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    ThreadInfo* thread = getThreadInfoJvmti(env, nullptr);
    return thread != nullptr && thread->isExcludedFromTracing() ? JNI_TRUE : JNI_FALSE;
    KZT_NATIVE_END(env, JNI_FALSE)
}

}  // extern "C"

static const JNINativeMethod ourTracingRows[] = {
    KZT_NATIVE_ROW(onUncaughtException, "()V"),
    KZT_NATIVE_ROW(shouldSkipThread, "()Z"),
};

KZT_NATIVE_GROUP(ourTracingNatives, ourTracingRows);
