// The natives of com.corvane.runtime.Callback that switch allocation
// recording and tell its settings. Each body runs inside the boundary rule.
#include "agent/NativeTable.h"
#include "recording/AllocationRecording.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

extern "C" {

JNIEXPORT jstring JNICALL NATIVE(startAllocationRecording)(JNIEnv* env, jclass, jint recordEach, jint sizeLimit,
                                                           jlong mode, jstring settings) {
    KZT_NATIVE_BEGIN
    ZString result = AllocationRecording::startAllocationRecording(env, recordEach, sizeLimit, mode);
    return result.isEmpty() ? nullptr : newJavaString(env, result);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT void JNICALL NATIVE(stopAllocationRecording)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    AllocationRecording::stopAllocationRecording(env);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(clearAllocationData)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        AllocationRecording::clearAllocationDataImpl(lock);
    }
    Logger::message("Allocation data cleared");
    KZT_NATIVE_END(env, )
}

JNIEXPORT jint JNICALL NATIVE(getAllocationRecordingSettingsRecordEach)(JNIEnv* env, jclass) {
    return ourAllocationRecordingSettings.myRecordEach;
}

JNIEXPORT jint JNICALL NATIVE(getAllocationRecordingSettingsSizeLimit)(JNIEnv* env, jclass) {
    return ourAllocationRecordingSettings.mySizeLimit;
}

}  // extern "C"

static const JNINativeMethod ourAllocationRows[] = {
    KZT_NATIVE_ROW(clearAllocationData, "()V"),
    KZT_NATIVE_ROW(getAllocationRecordingSettingsRecordEach, "()I"),
    KZT_NATIVE_ROW(getAllocationRecordingSettingsSizeLimit, "()I"),
    KZT_NATIVE_ROW(startAllocationRecording, "(IIJLjava/lang/String;)Ljava/lang/String;"),
    KZT_NATIVE_ROW(stopAllocationRecording, "()V"),
};

KZT_NATIVE_GROUP(ourAllocationNatives, ourAllocationRows);
