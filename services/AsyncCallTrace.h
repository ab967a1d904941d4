// The JVM's own asynchronous stack walk, used on the current thread. Unlike
// JVMTI's GetStackTrace it makes no thread state transition and takes no
// memory from the thread's resource area, whose growth goes through a lock
// that every thread of the JVM shares: where allocation events or probe rows
// ask for the stack of each call, that lock became the bottleneck. A stack
// that this walk cannot give is left to JVMTI.
#pragma once

#include <jni.h>

// One frame: the bytecode index (negative for a native method) and the method.
struct AsyncCallFrame {
    jint myLineOrLocation;
    jmethodID myMethodId;
};

namespace AsyncCallTrace {
// The current thread's frames, top first, at most `maxDepth`: their count,
// or -1 when the walk is not available, failed, or met a method that has no
// method id yet (JVMTI makes one).
int readCurrentThread(JNIEnv* env, int maxDepth, AsyncCallFrame* frames);
}  // namespace AsyncCallTrace
