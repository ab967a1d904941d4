#include "db/ZNodeTree.h"

#include <cstring>

#include "db/DB.h"

ZNodeTree::ZNodeTree()
    : myCodePointCache(1024), myAllocCounterCache(1024), myNodes(nullptr),
      myCapacity(0), myFreshCursor(1), myRescanCursor(1), myVmStartNode(-1), myUnknownAllocatorNode(-1) {
    // Nobody else sees the tree yet: the first array needs no lock.
    myNodes = new ZNode[INITIAL_CAPACITY];
    memset(myNodes, 0, sizeof(ZNode) * INITIAL_CAPACITY);
    myCapacity = INITIAL_CAPACITY;
}

ZNodeTree::~ZNodeTree() {
    delete[] myNodes;
}

void ZNodeTree::grow() {
    // Players of other threads may read the array under the lock.
    LockHolder lock(&ourLock, LOCK_SITE);
    int capacity = myCapacity + CAPACITY_STEP;
    ZNode* grown = new ZNode[capacity];
    memcpy(grown, myNodes, sizeof(ZNode) * myCapacity);
    memset(grown + myCapacity, 0, sizeof(ZNode) * (capacity - myCapacity));
    delete[] myNodes;
    myNodes = grown;
    myCapacity = capacity;
}

// Siblings close together: after each fresh node two slots stay free for
// its next siblings.
int ZNodeTree::allocateFreeNode() {
    for (;;) {
        if (myFreshCursor < myCapacity) {
            int node = myFreshCursor;
            myFreshCursor += 3;
            return node;
        }
        for (; myRescanCursor < myCapacity; myRescanCursor++) {
            if (myNodes[myRescanCursor].myCodePoint == 0) return myRescanCursor++;
        }
        grow();
    }
}

int ZNodeTree::getChildNode(int parent, int codePoint) {
    int first = myNodes[parent].myFirstChild;
    if (first == 0) {
        int node = allocateFreeNode();
        myNodes[node] = {parent, codePoint, 0, 0};
        myNodes[parent].myFirstChild = node;
        return node;
    }
    int last = first;
    for (int child = first; child != 0; child = myNodes[child].myNextSibling) {
        if (myNodes[child].myCodePoint == codePoint) return child;
        last = child;
    }
    int node = 0;
    if (last < first + 2) {
        int highest = first + 2 < myCapacity ? first + 2 : myCapacity - 1;
        for (int slot = highest; slot > last; slot--) {
            if (myNodes[slot].myCodePoint == 0) {
                node = slot;
                break;
            }
        }
    }
    if (node == 0) node = allocateFreeNode();
    myNodes[node] = {parent, codePoint, 0, 0};
    myNodes[last].myNextSibling = node;
    return node;
}

static long codePointKey(int method, int line) {
    return (long)(((uint64_t)(uint32_t)line << 32) | (uint32_t)method);
}

int ZNodeTree::getCodePoint(int method, int line) {
    int encoded = CodePointStorage::tryEncodeWithoutTable(method, line);
    if (encoded != 0) return encoded;
    return lookupCached(myCodePointCache, codePointKey(method, line), [&](const LockHolder& lock) {
        return CodePointStorage::getCodePointUnpacked(lock, method, line);
    });
}

int ZNodeTree::tryGetOwnLineChildNode(int node, int line) {
    if (node <= 0 || line <= 0) return node;
    return getChildNode(node, getCodePoint(ownLineNumberMethod, line));
}

int ZNodeTree::getPseudoMethodNode(const char* name) {
    int codePoint;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        int method = ZMethod::getByName(lock, "", name, "", "void", "", false);
        codePoint = CodePointStorage::getCodePoint(lock, method, 0);
    }
    return getChildNode(0, codePoint);
}

int ZNodeTree::getVmStartNode() {
    if (myVmStartNode == -1) myVmStartNode = getPseudoMethodNode("<Objects allocated during JVM startup>");
    return myVmStartNode;
}

int ZNodeTree::getUnknownAllocatorNode() {
    if (myUnknownAllocatorNode == -1) myUnknownAllocatorNode = getPseudoMethodNode("<Stack trace could not be retrieved>");
    return myUnknownAllocatorNode;
}
