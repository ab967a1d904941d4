/* Objects made from native code through JNI, for the allocation tests: each
 * round makes one instance, one int array, one string and one object array. */
#include <jni.h>

JNIEXPORT void JNICALL Java_AllocShapes_makeNative(JNIEnv* env, jclass caller, jint rounds, jclass made,
                                                   jobjectArray keep) {
    jmethodID constructor = (*env)->GetMethodID(env, made, "<init>", "()V");
    if (constructor == NULL) return;
    jsize kept = (*env)->GetArrayLength(env, keep);
    for (jint i = 0; i < rounds; i++) {
        jobject object = (*env)->NewObject(env, made, constructor);
        jintArray ints = (*env)->NewIntArray(env, 4);
        jstring text = (*env)->NewStringUTF(env, "made");
        jobjectArray objects = (*env)->NewObjectArray(env, 2, made, NULL);
        if (object == NULL || ints == NULL || text == NULL || objects == NULL) return;
        /* Half of them stay alive in the caller's array. */
        if (i < kept) (*env)->SetObjectArrayElement(env, keep, i, object);
        (*env)->DeleteLocalRef(env, object);
        (*env)->DeleteLocalRef(env, ints);
        (*env)->DeleteLocalRef(env, text);
        (*env)->DeleteLocalRef(env, objects);
    }
}
