// The natives of the probes: com.corvane.runtime.Callback's, registered as a
// group, and com.corvane.Natives.validateMethodPattern of the analysis
// process, exported by name.
#include "agent/NativeTable.h"
#include "db/SignatureUtil.h"
#include "services/JvmGlue.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

// Null on success, else the message.
static jstring validateMethodPattern(JNIEnv* env, jstring methodPattern) {
    if (methodPattern == nullptr) return newJavaString(env, "methodPattern is null");
    ZString classPattern, methodName, signature, returnType, classAnnotation, methodAnnotation;
    ZString error = SignatureUtil::parseMethodPattern(createZS(env, methodPattern), classPattern, methodName, signature,
                                                      returnType, classAnnotation, methodAnnotation);
    return error.isEmpty() ? nullptr : newJavaString(env, error);
}

extern "C" {

JNIEXPORT jstring JNICALL NATIVE(validateMethodPattern)(JNIEnv* env, jclass, jstring methodPattern) {
    KZT_NATIVE_BEGIN
    return validateMethodPattern(env, methodPattern);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jstring JNICALL Java_com_corvane_Natives_validateMethodPattern(JNIEnv* env, jclass, jstring methodPattern) {
    KZT_NATIVE_BEGIN
    return validateMethodPattern(env, methodPattern);
    KZT_NATIVE_END(env, nullptr)
}

}  // extern "C"

static const JNINativeMethod ourProbeRows[] = {
    KZT_NATIVE_ROW(validateMethodPattern, "(Ljava/lang/String;)Ljava/lang/String;"),
};

KZT_NATIVE_GROUP(ourProbeNatives, ourProbeRows);
