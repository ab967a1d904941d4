// The shared call tree: a call path is a frame of the "frame" table, found
// from its parent by code point. Frames live for the whole run. All of it
// needs ourLock.
#pragma once

#include <jni.h>
#include <jvmti.h>
#include <cstdint>

#include "db/CodePointStorage.h"
#include "db/ZMethod.h"
#include "foundation/ZLock.h"
#include "foundation/ZString.h"

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

// One frame of an asynchronously taken stack: a line or location, and the method.
struct AsyncCallFrame {
    jint myLineOrLocation;
    jmethodID myMethodId;
};

// The "<<own>>" pseudo method. A stack ends with a frame of it whose line is
// where the top frame stood, so that the lines of the top frame don't split
// the frames of its callers.
extern int ownLineNumberMethod;

class ZFrameStorage {
public:
    static int getChild(const LockHolder& lock, int parentFrame, int method, int line) {
        return getChild(lock, parentFrame, CodePointStorage::getCodePoint(lock, method, line));
    }
    // The child of `parentFrame` with that code point, made when missing.
    static int getChild(const LockHolder& lock, int parentFrame, int codePoint);

    // The method and parent of a frame, as stored.
    static int getMethodByFrame(int frame);
    static int getParent(int frame);

    // Whether the frame's method also stands in a frame above it.
    static bool isRecursive(const LockHolder& lock, int frame);
    // The frame of the method that a probe callback was injected into: the
    // first frame above the callbacks (flag 0x40); the frame itself when no
    // callback is on the path, 0 when nothing is above them.
    static int findInstrumentedMethod(const LockHolder& lock, int frame);

    static ZString getStackTraceByFrame(const LockHolder& lock, int frame);
    static ZString getMethodDescription(const LockHolder& lock, int method);
    static ZString getMethodDescriptionByFrame(const LockHolder& lock, int frame);

    // ---- Through JVMTI ----
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
    // Forgets the hash index of wide parents; with the frame table only.
    static void clearWideChildIndex();
};
