/* A monitor entered through JNI and never exited, for the monitor tests: the
 * thread that called this still holds the monitor when it ends. */
#include <jni.h>

JNIEXPORT void JNICALL Java_JniMonitorShapes_enterAndKeep(JNIEnv* env, jclass caller, jobject monitor) {
    (*env)->MonitorEnter(env, monitor);
}
