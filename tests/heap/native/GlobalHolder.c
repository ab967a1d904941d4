/* Holds an object through a JNI global reference, for the heap tests: the
 * object is then reachable only from that root. */
#include <jni.h>

JNIEXPORT void JNICALL Java_HeapShapes_holdGlobal(JNIEnv* env, jclass caller, jobject object) {
    (*env)->NewGlobalRef(env, object);
}
