// Immediate dominators by the semi-NCA algorithm over the numbering of a
// depth-first search from a virtual root (node 0) whose successors are the
// roots. The graph is a RefTable of nodes 0 to n - 1 (node 0 has no
// references of its own); the result goes to idom[1] to idom[n - 1], in the
// graph's numbering, 0 for a node that only the virtual root dominates.
// Every node must be reachable. The computers free the graph's storage once
// they no longer need it.
#pragma once

#include <cstdint>

#include "analysis/BigIntArray64.h"
#include "analysis/RefTable.h"
#include "foundation/ZMap.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

// The steps that both computers share.
class SemiNca {
public:
    // The distinct roots, in their first order.
    static void collectRoots(const int* roots, int rootCount, ZVector<int>& distinct);
    // Numbers the nodes in depth-first preorder from the virtual root:
    // ordinal[node], and parentOrdinal[k] is the ordinal of the parent of
    // the node numbered k (0, the virtual root, for the roots). `stack`
    // holds two ints per node, the path of the search: node and its place
    // among its references. Returns the count of nodes reached.
    static int depthFirstSearchDom(RefTable& graph, const ZVector<int>& roots, int* ordinal, int* stack,
                                   int* parentOrdinal);

    // Step 5 for node i over some of its predecessors (in depth-first
    // numbers): the smallest semidominator candidate they give. Ancestor and
    // label of node x sit side by side, at 2 * x and 2 * x + 1, so that a
    // step up a path costs one cache line.
    static int semiDominator(int i, const int* predecessors, int count, int* ancestorAndLabel,
                             ZVector<int, 1024>& stack) {
        // A predecessor numbered below i is not processed yet: its label is
        // still its own number, so its memory need not be touched.
        int semi = i;
        for (int k = 0; k < count; k++) {
            if (k + 8 < count && predecessors[k + 8] > i) {
                __builtin_prefetch(ancestorAndLabel + 2 * (int64_t)predecessors[k + 8]);
            }
            int v = predecessors[k];
            int candidate = v;
            if (v > i) {
                compressPath(i, v, ancestorAndLabel, stack);
                candidate = ancestorAndLabel[2 * (int64_t)v + 1];
            }
            if (candidate < semi) semi = candidate;
        }
        return semi;
    }
    // Step 6 for node i: the nearest common ancestor of its parent and its
    // semidominator in the dominator tree built so far.
    // Steps 6 for i from 1 up, idom holding the parents; idom[x] for x below
    // i is final by then.
    static void nearestCommonAncestors(int n, const int* semi, int* idom) {
        for (int i = 1; i < n; i++) {
            if (i + 16 < n) __builtin_prefetch(idom + idom[i + 16]);
            idom[i] = nearestCommonAncestor(idom[i], semi[i], idom);
            logProgress(i, n);
        }
        idom[0] = 0;
    }
    static int nearestCommonAncestor(int parent, int semi, const int* idom) {
        int x = parent;
        while (x > semi) x = idom[x];
        return x;
    }
    static void logProgress(int i, int n);

    // Fills a reversed graph whose counts stand in its start and count
    // column: gives every node its references, then add() puts a
    // predecessor at the node's next free place. `cursor` (n ints) holds
    // that place: a main-area position, or for an extra entry the index
    // counted up from INT_MIN.
    class ReversedGraphFiller {
    public:
        ReversedGraphFiller(RefTable& brt, int* cursor);
        void prefetch(int target) const { __builtin_prefetch(myCursor + target); }
        // Once the cursor is at hand: the place the predecessor will go to.
        void prefetchPlace(int target) const {
            int place = myCursor[target];
            if (place >= 0) {
                __builtin_prefetch(&myBlocks[place >> BigIntArray64::BLOCK_SHIFT][place & BigIntArray64::BLOCK_MASK], 1);
            }
        }
        void add(int target, int source) {
            int place = myCursor[target]++;
            if (place >= 0) {
                myBlocks[place >> BigIntArray64::BLOCK_SHIFT][place & BigIntArray64::BLOCK_MASK] = source;
            } else {
                myBrt.setRef(target, place - INT32_MIN, source);
            }
        }

    private:
        RefTable& myBrt;
        int* myCursor;
        int* const* myBlocks;
    };

private:
    static void compressPath(int i, int v, int* ancestorAndLabel, ZVector<int, 1024>& stack);
};

class DominatorComputerSnca {
public:
    DominatorComputerSnca(int n, RefTable* graph, const int* roots, int rootCount, BigIntArray64Presized* idom);
    void compute();

private:
    // The reversed graph in depth-first numbers, holding only the edges
    // that come from a higher number: a predecessor numbered below a node
    // counts for its semidominator by its number alone, so only the
    // smallest of those is kept, in `smallest` (n ints; the node itself
    // when it has none; 0 for the roots, which the virtual root precedes).
    // `cursor` is scratch of n ints.
    RefTable* computeBRT(const ZVector<int>& roots, const int* ordinal, int* cursor, int* smallest);
    // Rewrites the targets of myGraph in depth-first numbers; the nodes keep
    // their places, so that the graph is still read in the order it lies in.
    void renumberTargets(const int* ordinal);
    // Calls visit(source, targets, count, lookAhead) for every stretch of
    // the references of every node, in the order they lie in memory, with
    // the node's depth-first number; lookAhead tells how many ints after
    // `targets` may still be read (as hints for prefetching).
    template <typename Visit>
    void forEachStretch(const int* ordinal, Visit visit);

    int myN;
    RefTable* myGraph;
    const int* myRoots;
    int myRootCount;
    BigIntArray64Presized* myIdom;
};

class DominatorComputerSnca_LowMem {
public:
    // `path` is the input file the graph was read from; `folder` takes the
    // temporary files (empty: the temporary folder).
    DominatorComputerSnca_LowMem(const ZString& path, int n, RefTable* graph, const int* roots, int rootCount,
                                 BigIntArray64Presized* idom, const ZString& folder);
    void compute();

private:
    // Reads the input file from its start, checking its node count, and
    // calls edge(source, target) for every reference.
    template <typename Edge>
    void forEachInputEdge(Edge edge);

    ZString myPath;
    int myN;
    RefTable* myGraph;
    const int* myRoots;
    int myRootCount;
    BigIntArray64Presized* myIdom;
    ZString myFolder;
};

// Maps a result in depth-first numbers (idom[k] for ordinal k) to the graph's
// numbering, given ordinal[node]; scratch holds n ints.
void mapDominatorsToNodes(int n, const int* ordinal, int* idom, int* ordinalToNode, int* scratch);
