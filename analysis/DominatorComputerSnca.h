// Immediate dominators by the semi-NCA algorithm over the numbering of a
// depth-first search from a virtual root (node 0) whose successors are the
// roots. The graph is a RefTable of nodes 0 to n - 1 (node 0 has no
// references of its own); the result goes to idom[1] to idom[n - 1], in the
// graph's numbering, 0 for a node that only the virtual root dominates.
// Every node must be reachable. The computers free the graph's storage once
// they no longer need it.
#pragma once

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
    // ordinal[node], and parentNode[node] in the graph's numbering; `cursor`
    // is scratch of n ints. Returns the count of nodes reached.
    static int depthFirstSearchDom(RefTable& graph, const ZVector<int>& roots, int* ordinal, int* parentNode,
                                   int* cursor);
    // parentOrdinal[ordinal[v]] := ordinal[parentNode[v]].
    static void parentsByOrdinal(int n, const int* ordinal, const int* parentNode, int* parentOrdinal);

    // Step 5 for node i over some of its predecessors (in depth-first
    // numbers): the smallest semidominator candidate they give.
    static int semiDominator(int i, const int* predecessors, int count, int* ancestor, int* label,
                             ZVector<int, 1024>& stack) {
        int semi = i;
        for (int k = 0; k < count; k++) {
            int v = predecessors[k];
            if (v > i) compressPath(i, v, ancestor, label, stack);
            int candidate = label[v];
            if (candidate < semi) semi = candidate;
        }
        return semi;
    }
    // Step 6 for node i: the nearest common ancestor of its parent and its
    // semidominator in the dominator tree built so far.
    static int nearestCommonAncestor(int parent, int semi, const int* idom) {
        int x = parent;
        while (x > semi) x = idom[x];
        return x;
    }
    static void logProgress(int i, int n);

    // Fills a reversed graph whose counts stand in its start and count
    // column: gives every node its references, then add() puts a
    // predecessor at the node's next free place, counted in `cursor`.
    class ReversedGraphFiller {
    public:
        ReversedGraphFiller(RefTable& brt, int* cursor);
        void add(int target, int source) {
            int start = mySc[2 * (int64_t)target];
            int index = myCursor[target]++;
            if (start < 0) {
                myBrt.setRef(target, index, source);
                return;
            }
            int64_t position = (int64_t)start + index;
            myBlocks[position >> BigIntArray64::BLOCK_SHIFT][position & BigIntArray64::BLOCK_MASK] = source;
        }

    private:
        RefTable& myBrt;
        const int* mySc;
        int* myCursor;
        int* const* myBlocks;
    };

private:
    static void compressPath(int i, int v, int* ancestor, int* label, ZVector<int, 1024>& stack);
};

class DominatorComputerSnca {
public:
    DominatorComputerSnca(int n, RefTable* graph, const int* roots, int rootCount, BigIntArray64Presized* idom);
    void compute();

private:
    // The reversed graph in depth-first numbers, with the virtual root's
    // edges to the roots; `cursor` is scratch of n ints.
    RefTable* computeBRT(const ZVector<int>& roots, const int* ordinal, int* cursor);
    // Rewrites myGraph in depth-first numbers.
    void renumberGraph(const int* ordinal);

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
