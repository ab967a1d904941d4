// Stacks taken through JVMTI. A stack of another thread (sampling, heap
// roots) becomes a frame of the shared tree under ourLock; the current
// thread's own stack becomes a node of its private tree, with caches that
// keep the lock away on the hot paths of monitor and allocation events.
#pragma once

#include <jni.h>
#include <jvmti.h>
#include <cstdint>

#include "db/ZNodeTree.h"
#include "foundation/ZLock.h"
#include "foundation/ZMap.h"
#include "services/AsyncCallTrace.h"

// A method and a bytecode location: the key of the line caches.
struct MethodAndLocation {
    int32_t myMethod;
    int64_t myLocation;

    bool operator==(const MethodAndLocation& other) const {
        return myMethod == other.myMethod && myLocation == other.myLocation;
    }
};
inline int32_t zmap_hashCode(const MethodAndLocation& key) {
    return (int32_t)((uint32_t)key.myMethod + (uint32_t)key.myLocation);
}

class StackCapture {
public:
    // The line at `location`, 0 when unknown; cached, lineless answers too.
    static int getLineNumber(const LockHolder& lock, jmethodID methodId, int method, jlocation location);
    // The method index of a JVM method, interned on first sight.
    static int getMethodById(const LockHolder& lock, JNIEnv* env, jmethodID methodId);
    // A sampled stack as a frame: bottom up, invisible methods skipped, each
    // call placed at its caller's line, and the own-line frame on top.
    static int fillCurrentFrameJVMTIForSampling(const LockHolder& lock, JNIEnv* env, const jvmtiStackInfo& stack);
    // The same for (location, method id) frames; null ids are skipped.
    static int fillCurrentFrameForAsyncSampling(const LockHolder& lock, JNIEnv* env, int count,
                                                AsyncCallFrame* frames);
    // The same walk for heap roots, skipping nothing; every method must resolve.
    static int fillCurrentFrameJvmtiForRoots(const LockHolder& lock, JNIEnv* env, const jvmtiStackInfo& stack);

    static void resetForTests();
};

// The current thread's stack as a node of its own tree. Used only by the
// owning thread; ourLock is taken on a cache miss.
class NodeStackCapture {
public:
    static constexpr int MAX_STACK_DEPTH = ZNodeTree::MAX_STACK_DEPTH;

    explicit NodeStackCapture(ZNodeTree* tree);
    NodeStackCapture(const NodeStackCapture&) = delete;
    NodeStackCapture& operator=(const NodeStackCapture&) = delete;

    int getLineNumber(jmethodID methodId, int method, jlocation location);
    int getMethodById(JNIEnv* env, jmethodID methodId);

    // Bottom up, invisible methods skipped; `lastLine` gets the line of the
    // top frame.
    int fillCurrentNodeJvmti_notForTracing_noOwnLine(JNIEnv* env, int* lastLine);
    // The same with the own-line node on top.
    int fillCurrentNodeJvmti_notForTracing_withOwnLine(JNIEnv* env);
    // Only methods instrumented for tracing and not excluded; with `lines`
    // false every line is 0. No own-line node.
    int fillCurrentNodeJvmti_forTracing(JNIEnv* env, bool lines);
    // The method of the top visible frame among the top few, 0 on failure.
    int getTopMethodIndex(JNIEnv* env);

private:
    // The current thread's frames into the buffer, by the JVM's asynchronous
    // walk where it can, else by GetStackTrace, whose error
    // goes to `error`; the frame count.
    int readCurrentStack(JNIEnv* env, int maxDepth, jvmtiError* error);
    // The whole stack into the buffer; a JVMTI error is fatal.
    int readWholeStack(JNIEnv* env);
    int walkCurrentStack(JNIEnv* env, int count, int mask, int wanted, bool dropLine, bool lines, int* lastLine);

    // The walk that skips only invisible frames, remembered for the last few
    // stacks it was made from: methods, lines and nodes never change for
    // given frames, so the same frames give the same node without a lookup.
    // Probes make rows from a few places in turn (a request, its connection,
    // its statement), each with a stack of its own.
    static constexpr int REMEMBERED_DEPTH = 64;
    static constexpr int REMEMBERED_STACKS = 8;
    struct RememberedStack {
        int myCount = -1;
        int myNode = 0;
        int myLastLine = 0;
        jvmtiFrameInfo myFrames[REMEMBERED_DEPTH];
    };
    // The remembered stack with the `count` frames of the buffer, or null.
    const RememberedStack* findRememberedStack(int count) const;
    // Takes the place of the stack remembered longest ago.
    void rememberStack(int count, int node, int lastLine);

    ZNodeTree* myTree;
    ZMap<MethodAndLocation, int> myLineCache;
    ZMap<jmethodID, int> myMethodCache;
    RememberedStack myRemembered[REMEMBERED_STACKS];
    int myOldestRemembered = 0;
    jvmtiFrameInfo myFrameBuffer[MAX_STACK_DEPTH];
};
