// Allocation recording: objects made by the Java program, reported by the
// instrumented allocation sites (kztInit), by the JVM's heap sampling
// (SampledObjectAlloc), by the redirected JNI functions and by the JVM's own
// allocation events. Three modes: exact stacks record a stack for one
// object in N and every object of at least S bytes; sampled stacks take the
// stack the sampler last saw on the thread; object counting only counts per
// allocation point and class.
//
// A recorded object becomes an event of its thread (size and place), and an
// entry of the ObjectEnumerator, so that its age is known when it dies.
#pragma once

#include <jni.h>
#include <jvmti.h>
#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/ZString.h"

struct AllocationRecordingSettings {
    // A new stack once in this many objects; 0 records only large objects.
    int32_t myRecordEach;
    // An object of at least this many bytes is always recorded.
    int32_t mySizeLimit;
};
extern AllocationRecordingSettings ourAllocationRecordingSettings;

class AllocationRecording {
public:
    // One object, once the mode says that it is wanted (see kztInitImpl).
    // Returns the new cached node of the allocating method.
    static jint recordObject(JNIEnv* env, jobject object, jclass klass, jlong size, jint cachedFrame,
                             jint classMethodId, jint line, uint64_t mode);
    // The pseudo method "<<init>>" of a class, cached as the class's tag in
    // the allocator environment; 0 when the class can't be named.
    static int getClassPseudoMethod(JNIEnv* env, jclass klass);

    // ---- Mode control ----
    // Null text on success, else the refusal for the caller.
    static ZString startAllocationRecording(JNIEnv* env, int recordEach, int sizeLimit, int64_t mode);
    // Does nothing while recording is off.
    static void stopAllocationRecording(JNIEnv* env);
    // Plays every thread's events and clears "alloc_info" and the object counts.
    static void clearAllocationDataImpl(const LockHolder& lock);

    // ---- Captures and table streams ----
    // Before a capture: the striped call and object counts into the tables.
    static void beginCapture(const LockHolder& lock);
    // What the table stream asks: the ages of objects collected meanwhile,
    // and the times of recording as properties.
    static void flushCollectedObjectAges(const LockHolder& lock);
    static void setRecordingTimeProperties(const LockHolder& lock);

    // Objects and bytes counted by the agent itself, in all threads.
    static int64_t getCreatedObjectCount();
    static int64_t getCreatedObjectSize();

    // Forgets the mode state, for tests.
    static void resetForTests();
};

// The JVM's heap sampling: every sampled object takes the road of kztInit.
class HeapSampling {
public:
    // At load: each thread takes the interval of allocation recording from
    // its birth on, not only from its next sample.
    static void prepare();
};

// Objects made through JNI: the JNI functions that create objects are
// replaced by ones that report what they made.
void redirectJniFunctions();
