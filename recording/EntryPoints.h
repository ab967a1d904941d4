// The natives at the end of the Callback stubs that rewritten methods call,
// and the first decisions on an allocated object. The method entry points
// run on every traced call: no lock, no allocation.
#pragma once

#include <jni.h>

// Allocation of one object as seen by injected code (cachedFrame, class
// pseudo method, line) or by the JVM's events (-1, 0, 0). Returns the new
// cached frame.
jint kztInitImpl(JNIEnv* env, jobject object, jclass klass, jlong size, jint cachedFrame, jint classMethodId,
                 jint line);

// The work of the natives kztMethodEntry0, kztMethodExit0 and kztMethodLine0.
jlong kztMethodEntryImpl(JNIEnv* env, jint methodId);
void kztMethodExitImpl(JNIEnv* env, jint methodId, jlong entryResult);
void kztMethodLineImpl(JNIEnv* env, jint line);
