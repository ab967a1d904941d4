// The natives of the Java object maps: objects to event ids for probes,
// without a reference to the object.
#include "agent/NativeTable.h"
#include "recording/JavaObjectMap.h"
#include "services/JvmGlue.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

extern "C" {

JNIEXPORT jlong JNICALL NATIVE(createObjectMap)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    return JavaObjectMap::createObjectMap();
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT void JNICALL NATIVE(deleteObjectMap)(JNIEnv* env, jclass, jlong map) {
    KZT_NATIVE_BEGIN
    JavaObjectMap::deleteObjectMap(map);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jint JNICALL NATIVE(objectMapGet)(JNIEnv* env, jclass, jlong map, jobject key) {
    KZT_NATIVE_BEGIN
    return JavaObjectMap::objectMapGet(map, key);
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT jint JNICALL NATIVE(objectMapPut)(JNIEnv* env, jclass, jlong map, jobject key, jint eventId,
                                            jboolean conditional, jint expected) {
    KZT_NATIVE_BEGIN
    return JavaObjectMap::objectMapPut(map, key, eventId, conditional, expected);
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT jlong JNICALL NATIVE(objectGetID)(JNIEnv* env, jclass, jobject object) {
    KZT_NATIVE_BEGIN
    return JavaObjectMap::objectGetID(object);
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT jboolean JNICALL NATIVE(isLiveObjectID)(JNIEnv* env, jclass, jlong id) {
    KZT_NATIVE_BEGIN
    return JavaObjectMap::isLiveObjectID(id);
    KZT_NATIVE_END(env, JNI_FALSE)
}

}  // extern "C"

static const JNINativeMethod ourObjectMapRows[] = {
    KZT_NATIVE_ROW(createObjectMap, "()J"),
    KZT_NATIVE_ROW(deleteObjectMap, "(J)V"),
    KZT_NATIVE_ROW(objectMapGet, "(JLjava/lang/Object;)I"),
    KZT_NATIVE_ROW(objectMapPut, "(JLjava/lang/Object;IZI)I"),
    KZT_NATIVE_ROW(objectGetID, "(Ljava/lang/Object;)J"),
    KZT_NATIVE_ROW(isLiveObjectID, "(J)Z"),
};

KZT_NATIVE_GROUP(ourObjectMapNatives, ourObjectMapRows);
