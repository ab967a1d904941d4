/* The native of the native wrapping benchmark: a few operations of work. */
#include <jni.h>

JNIEXPORT jint JNICALL Java_JniLoop_step(JNIEnv* env, jclass caller, jint x) { return x * 0x2c1b3c6d + 17; }
