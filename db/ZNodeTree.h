// ZNodeTree: a thread's private mirror of the call tree. Hot paths (monitor
// and allocation events) build their stack here without the shared lock;
// nodes become frames of the shared tree only when events are played. The
// caches are filled by the owning thread; ourLock is taken only on a miss,
// to reach the shared tables, and to grow the node array.
#pragma once

#include <jni.h>
#include <jvmti.h>
#include <cstdint>

#include "db/ZFrameStorage.h"
#include "foundation/ZMap.h"

struct ZNode {
    int32_t myParent;
    int32_t myCodePoint;  // 0: a free node
    int32_t myFirstChild;  // 0: none
    int32_t myNextSibling;  // 0: none
};

class ZNodeTree {
public:
    static constexpr int MAX_STACK_DEPTH = 1024;
    static constexpr int INITIAL_CAPACITY = 16384;
    static constexpr int CAPACITY_STEP = 8192;

    ZNodeTree();
    ~ZNodeTree();
    ZNodeTree(const ZNodeTree&) = delete;
    ZNodeTree& operator=(const ZNodeTree&) = delete;

    // The child of `parent` with that code point, made when missing. Node 0
    // is the root.
    int getChildNode(int parent, int codePoint);
    int getNodeParent(int node) const { return myNodes[node].myParent; }
    int getNodeCodePoint(int node) const { return myNodes[node].myCodePoint; }
    int getCapacity() const { return myCapacity; }

    int getCodePoint(int method, int line);
    int getLineNumber(jmethodID methodId, int method, jlocation location);
    int getMethodById(JNIEnv* env, jmethodID methodId);
    // Allocation counters by (method, line) key, kept by allocation recording.
    ZMap<long, long>& getAllocCounterCache() { return myAllocCounterCache; }

    // The current thread's stack, bottom up, invisible methods skipped;
    // `lastLine` gets the line of the top frame.
    int fillCurrentNodeJvmti_notForTracing_noOwnLine(JNIEnv* env, int* lastLine);
    // The same with the own-line node on top.
    int fillCurrentNodeJvmti_notForTracing_withOwnLine(JNIEnv* env);
    // Only methods instrumented for tracing and not excluded; with `lines`
    // false every line is 0. No own-line node.
    int fillCurrentNodeJvmti_forTracing(JNIEnv* env, bool lines);
    // The own-line child when node and line are both above 0, else the node.
    int tryGetOwnLineChildNode(int node, int line);
    // The method of the top frame, 0 on failure.
    int getTopMethodIndex(JNIEnv* env);

    // Children of the root for the pseudo methods of allocation recording.
    int getVmStartNode();
    int getUnknownAllocatorNode();

private:
    int allocateFreeNode();
    void grow();
    // GetStackTrace of the current thread into the buffer; the frame count.
    int readCurrentStack(int maxDepth);
    int getPseudoMethodNode(const char* name);

    ZMap<MethodAndLocation, int> myLineCache;
    ZMap<long, int> myCodePointCache;
    ZMap<long, long> myAllocCounterCache;
    ZMap<jmethodID, int> myMethodCache;
    ZNode* myNodes;
    int32_t myCapacity;
    int32_t myFreshCursor;
    int32_t myRescanCursor;
    jvmtiFrameInfo myFrameBuffer[MAX_STACK_DEPTH];
    int32_t myVmStartNode;
    int32_t myUnknownAllocatorNode;
};
