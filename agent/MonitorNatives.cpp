// The natives of com.corvane.runtime.Callback that switch monitor profiling
// and clear the monitor and exception tables. Each body runs inside the
// boundary rule.
#include "agent/NativeTable.h"
#include "recording/Exceptions.h"
#include "recording/Monitors.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

extern "C" {

JNIEXPORT jstring JNICALL NATIVE(startMonitorProfiling)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    ZString result = Monitors::startMonitorProfiling(env);
    return result.isEmpty() ? nullptr : newJavaString(env, result);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT void JNICALL NATIVE(stopMonitorProfiling)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    Monitors::stopMonitorProfiling(env);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(clearMonitorData)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        Monitors::clearMonitorData(lock);
    }
    Logger::message("Monitor data cleared");
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(clearExceptions)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        Exceptions::clearExceptions(lock);
    }
    Logger::message("Exceptions cleared");
    KZT_NATIVE_END(env, )
}

}  // extern "C"

static const JNINativeMethod ourMonitorRows[] = {
    KZT_NATIVE_ROW(clearExceptions, "()V"),
    KZT_NATIVE_ROW(clearMonitorData, "()V"),
    KZT_NATIVE_ROW(startMonitorProfiling, "()Ljava/lang/String;"),
    KZT_NATIVE_ROW(stopMonitorProfiling, "()V"),
};

KZT_NATIVE_GROUP(ourMonitorNatives, ourMonitorRows);
