// ZNodeTree: a thread's private mirror of the call tree. Hot paths (monitor
// and allocation events) build their stack here without the shared lock;
// nodes become frames of the shared tree only when events are played. The
// caches are filled by the owning thread; ourLock is taken only on a miss,
// to reach the shared tables, and to grow the node array.
#pragma once

#include <cstdint>

#include "db/ZFrameStorage.h"
#include "foundation/ZLock.h"
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
    // Allocation counters by (method, line) key, kept by allocation recording.
    ZMap<long, long>& getAllocCounterCache() { return myAllocCounterCache; }

    // The own-line child when node and line are both above 0, else the node.
    int tryGetOwnLineChildNode(int node, int line);

    // Children of the root for the pseudo methods of allocation recording.
    int getVmStartNode();
    int getUnknownAllocatorNode();

    // A thread's private cache first; on a miss `compute` runs under ourLock
    // and its answer is kept.
    template <typename K, typename Compute>
    static int lookupCached(ZMap<K, int>& cache, const K& key, Compute compute) {
        int* known = cache.getPtr(key);
        if (known != nullptr) return *known;
        int value;
        {
            LockHolder lock(&ourLock, LOCK_SITE);
            value = compute(lock);
        }
        cache.put(key, value);
        return value;
    }

private:
    int allocateFreeNode();
    void grow();
    int getPseudoMethodNode(const char* name);

    ZMap<long, int> myCodePointCache;
    ZMap<long, long> myAllocCounterCache;
    ZNode* myNodes;
    int32_t myCapacity;
    int32_t myFreshCursor;
    int32_t myRescanCursor;
    int32_t myVmStartNode;
    int32_t myUnknownAllocatorNode;
};
