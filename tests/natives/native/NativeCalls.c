/* The natives of the native wrapping tests (tests/natives/java/NativeShapes):
 * plain arithmetic of every kind of argument, and one native that calls back
 * into Java. */
#include <jni.h>

JNIEXPORT jlong JNICALL Java_NativeShapes_add(JNIEnv* env, jclass caller, jint a, jlong b) { return a + b; }

JNIEXPORT jdouble JNICALL Java_NativeShapes_scale(JNIEnv* env, jobject self, jfloat f, jdouble d, jbyte b) {
    return f * d + b;
}

JNIEXPORT jstring JNICALL Java_NativeShapes_echo(JNIEnv* env, jobject self, jstring text) { return text; }

JNIEXPORT void JNICALL Java_NativeShapes_callBack(JNIEnv* env, jclass caller, jint times) {
    jmethodID method = (*env)->GetStaticMethodID(env, caller, "fromNative", "()V");
    if (method == NULL) return;
    for (jint i = 0; i < times; i++) {
        (*env)->CallStaticVoidMethod(env, caller, method);
        if ((*env)->ExceptionCheck(env)) return;
    }
}
