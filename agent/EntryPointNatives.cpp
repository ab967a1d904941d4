// The natives of com.corvane.runtime.Callback that rewritten code reaches:
// the ends of the four stubs, the allocation counts and the probe template.
// Each body runs inside the boundary rule.
#include "agent/NativeTable.h"
#include "instrumentation/Instrumentation.h"
#include "recording/AllocationRecording.h"
#include "recording/EntryPoints.h"
#include "services/JvmGlue.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

extern "C" {

JNIEXPORT jlong JNICALL NATIVE(kztMethodEntry0)(JNIEnv* env, jclass, jint methodId) {
    KZT_NATIVE_BEGIN
    return kztMethodEntryImpl(env, methodId);
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT void JNICALL NATIVE(kztMethodExit0)(JNIEnv* env, jclass, jint methodId, jlong entryResult) {
    KZT_NATIVE_BEGIN
    kztMethodExitImpl(env, methodId, entryResult);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(kztMethodLine0)(JNIEnv* env, jclass, jint line) {
    KZT_NATIVE_BEGIN
    kztMethodLineImpl(env, line);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jint JNICALL NATIVE(kztInit0)(JNIEnv* env, jclass, jobject object, jint cachedFrame, jint classMethodId,
                                        jshort line) {
    KZT_NATIVE_BEGIN
    return kztInitImpl(env, object, nullptr, 0, cachedFrame, classMethodId, line);
    KZT_NATIVE_END(env, cachedFrame)
}

JNIEXPORT jlong JNICALL NATIVE(getNativeAllocationCounterResult)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    return AllocationRecording::getCreatedObjectCount();
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT jlong JNICALL NATIVE(getTotalCreatedObjectSize)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    return AllocationRecording::getCreatedObjectSize();
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT jbyteArray JNICALL NATIVE(patchTemplateClass)(JNIEnv* env, jclass, jobjectArray macroAndValuePairs) {
    KZT_NATIVE_BEGIN
    return patchTemplateClassImpl(env, macroAndValuePairs);
    KZT_NATIVE_END(env, nullptr)
}

}  // extern "C"

static const JNINativeMethod ourEntryPointRows[] = {
    KZT_NATIVE_ROW(getNativeAllocationCounterResult, "()J"),
    KZT_NATIVE_ROW(getTotalCreatedObjectSize, "()J"),
    KZT_NATIVE_ROW(kztInit0, "(Ljava/lang/Object;IIS)I"),
    KZT_NATIVE_ROW(kztMethodEntry0, "(I)J"),
    KZT_NATIVE_ROW(kztMethodExit0, "(IJ)V"),
    KZT_NATIVE_ROW(kztMethodLine0, "(I)V"),
    KZT_NATIVE_ROW(patchTemplateClass, "([Ljava/lang/String;)[B"),
};

KZT_NATIVE_GROUP(ourEntryPointNatives, ourEntryPointRows);
