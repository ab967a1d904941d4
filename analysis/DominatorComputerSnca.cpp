#include "analysis/DominatorComputerSnca.h"

#include <cstring>
#include <memory>

#include "services/Logger.h"

// How many nodes ahead the semidominator loop fetches the pairs of the
// predecessors: far enough for the memory's latency at a few hundred
// nanoseconds a node.
static const int SEMI_PREFETCH_DISTANCE = 32;

static void logLine(const char* text, int64_t value) {
    ZString line(text);
    line.appendLong(value);
    Logger::messageWithStats(line);
}

void SemiNca::collectRoots(const int* roots, int rootCount, ZVector<int>& distinct) {
    ZSet<int> seen(rootCount > 0 ? rootCount : 1);
    for (int i = 0; i < rootCount; i++) {
        if (seen.add(roots[i])) distinct.push(roots[i]);
    }
}

int SemiNca::depthFirstSearchDom(RefTable& graph, const ZVector<int>& roots, int* ordinal, int* stack,
                                 int* parentOrdinal) {
    int n = graph.getSize();
    const int* sc = graph.getStartAndCount();
    memset(ordinal, 0xff, sizeof(int) * (size_t)n);
    // Whether a node was reached, a bit a node: the search asks this once
    // for every reference, and the bits stay in the cache where the
    // ordinals would not.
    std::unique_ptr<uint64_t[]> reached(new uint64_t[((size_t)n + 63) / 64]());
    auto isReached = [&reached](int v) { return (reached[(uint32_t)v >> 6] >> (v & 63)) & 1; };
    auto markReached = [&reached](int v) { reached[(uint32_t)v >> 6] |= (uint64_t)1 << (v & 63); };
    ordinal[0] = 0;
    parentOrdinal[0] = 0;
    markReached(0);
    int next = 1;
    for (int r = 0; r < roots.getSize(); r++) {
        int root = roots[r];
        if (isReached(root)) continue;
        markReached(root);
        ordinal[root] = next;
        parentOrdinal[next] = 0;
        // The path lies in `stack`, which stays in the cache; the ordinal of
        // its top node is at hand, and that of the node below is its parent's.
        int top = 0;
        int topOrdinal = next++;
        stack[0] = root;
        stack[1] = 0;
        while (top >= 0) {
            int v = stack[2 * (int64_t)top];
            int k = stack[2 * (int64_t)top + 1];
            int count = sc[2 * (int64_t)v + 1];
            int found = -1;
            if (k == 0 && count > 0) {
                // First visit: the search will look at these targets' references.
                int available;
                const int* targets = graph.getRefsChunk(v, 0, available);
                for (int j = 0; j < available && j < 16; j++) __builtin_prefetch(sc + 2 * (int64_t)targets[j]);
            }
            while (k < count && found < 0) {
                int available;
                const int* targets = graph.getRefsChunk(v, k, available);
                for (int j = 0; j < available; j++) {
                    if (!isReached(targets[j])) {
                        found = targets[j];
                        k += j + 1;
                        break;
                    }
                }
                if (found < 0) k += available;
            }
            if (found < 0) {
                top--;
                topOrdinal = parentOrdinal[topOrdinal];
                continue;
            }
            stack[2 * (int64_t)top + 1] = k;
            markReached(found);
            ordinal[found] = next;
            parentOrdinal[next] = topOrdinal;
            topOrdinal = next++;
            top++;
            stack[2 * (int64_t)top] = found;
            stack[2 * (int64_t)top + 1] = 0;
            __builtin_prefetch(sc + 2 * (int64_t)found);
        }
    }
    return next;
}

void SemiNca::compressPath(int i, int v, int* ancestorAndLabel, ZVector<int, 1024>& stack) {
    // Up the processed part of the path (nodes above i), then back down,
    // each node taking the smaller label of its ancestor and skipping to
    // the ancestor's ancestor.
    int* pairs = ancestorAndLabel;
    int x = v;
    while (pairs[2 * (int64_t)x] > i) {
        stack.push(x);
        x = pairs[2 * (int64_t)x];
    }
    while (!stack.isEmpty()) {
        int* y = pairs + 2 * (int64_t)stack.pop();
        const int* a = pairs + 2 * (int64_t)y[0];
        if (a[1] < y[1]) y[1] = a[1];
        y[0] = a[0];
    }
}

void SemiNca::logProgress(int i, int n) {
    if ((i & 0xfffff) != 0) return;
    ZString line("_dcc: 7: i=");
    line.appendLong(i).append(" ").appendLong((int64_t)i * 100 / n).append("%");
    Logger::messageWithStats(line);
}

SemiNca::ReversedGraphFiller::ReversedGraphFiller(RefTable& brt, int* cursor)
    : myBrt(brt), myCursor(cursor), myBlocks(nullptr) {
    int n = brt.getSize();
    int* sc = brt.getStartAndCount();
    for (int v = 0; v < n; v++) {
        brt.createRefs(v, sc[2 * (int64_t)v + 1]);
        int start = sc[2 * (int64_t)v];
        cursor[v] = start >= 0 ? start : INT32_MIN;
    }
    if (brt.getNextFree() > 0) brt.getMainArea().createBlocksUpTo(brt.getNextFree() - 1);
    myBlocks = brt.getMainArea().getBlockTable();
}

void mapDominatorsToNodes(int n, const int* ordinal, int* idom, int* ordinalToNode, int* scratch) {
    for (int v = 0; v < n; v++) ordinalToNode[ordinal[v]] = v;
    for (int k = 1; k < n; k++) idom[k] = ordinalToNode[idom[k]];
    for (int v = 1; v < n; v++) scratch[v] = idom[ordinal[v]];
    idom[0] = 0;
    if (n > 1) memcpy(idom + 1, scratch + 1, sizeof(int) * (size_t)(n - 1));
}

DominatorComputerSnca::DominatorComputerSnca(int n, RefTable* graph, const int* roots, int rootCount,
                                             BigIntArray64Presized* idom)
    : myN(n), myGraph(graph), myRoots(roots), myRootCount(rootCount), myIdom(idom) {
    KZT_ASSERT(n >= 1 && graph->getSize() == n && idom->getSize() >= n);
}

void DominatorComputerSnca::renumberTargets(const int* ordinal) {
    BigIntArray64& area = myGraph->getMainArea();
    int64_t used = myGraph->getNextFree();
    for (int64_t position = 0; position < used; position += BigIntArray64::BLOCK_SIZE) {
        int* block = area.getBuffer(position, false);
        if (block == nullptr) continue;
        int64_t end = used - position < BigIntArray64::BLOCK_SIZE ? used - position : BigIntArray64::BLOCK_SIZE;
        for (int64_t j = 0; j < end; j++) block[j] = ordinal[block[j]];
    }
    const int* sc = myGraph->getStartAndCount();
    for (int v = 0; v < myN; v++) {
        int start = sc[2 * (int64_t)v];
        if (start >= 0) continue;
        int* extra = myGraph->getExtraArray(-start);
        int count = sc[2 * (int64_t)v + 1];
        for (int j = 0; extra != nullptr && j < count; j++) extra[j] = ordinal[extra[j]];
    }
}

template <typename Visit>
void DominatorComputerSnca::forEachStretch(const int* ordinal, Visit visit) {
    const int* sc = myGraph->getStartAndCount();
    for (int v = 0; v < myN; v++) {
        int start = sc[2 * (int64_t)v];
        int count = sc[2 * (int64_t)v + 1];
        int u = ordinal[v];
        for (int k = 0; k < count;) {
            int available;
            const int* targets = myGraph->getRefsChunk(v, k, available);
            // The main area lies node after node: what follows in the block
            // belongs to the next nodes.
            int lookAhead = 0;
            if (start >= 0) {
                lookAhead = BigIntArray64::BLOCK_SIZE - (int)(((int64_t)start + k) & BigIntArray64::BLOCK_MASK);
            }
            if (lookAhead < available) lookAhead = available;
            visit(u, targets, available, lookAhead);
            k += available;
        }
    }
}

RefTable* DominatorComputerSnca::computeBRT(const ZVector<int>& roots, const int* ordinal, int* cursor,
                                            int* smallest) {
    RefTable* brt = new RefTable("brt", myN);
    int* counts = brt->getStartAndCount();
    // Until the table is filled, the start of each node holds the smallest
    // source below it plus one, 0 for none: one cache line takes both.
    forEachStretch(ordinal, [counts](int u, const int* targets, int available, int lookAhead) {
        for (int j = 0; j < available; j++) {
            if (j + 16 < lookAhead) __builtin_prefetch(counts + 2 * (int64_t)targets[j + 16]);
            int t = targets[j];
            if (t < u) {
                counts[2 * (int64_t)t + 1]++;
            } else if (t > u) {
                int& slot = counts[2 * (int64_t)t];
                if (slot == 0 || u + 1 < slot) slot = u + 1;
            }
        }
    });
    for (int r = 0; r < roots.getSize(); r++) counts[2 * (int64_t)ordinal[roots[r]]] = 1;
    for (int t = 0; t < myN; t++) {
        int source = counts[2 * (int64_t)t];
        smallest[t] = source == 0 ? t : source - 1;
    }
    SemiNca::ReversedGraphFiller filler(*brt, cursor);
    forEachStretch(ordinal, [&filler](int u, const int* targets, int available, int lookAhead) {
        for (int j = 0; j < available; j++) {
            if (j + 24 < lookAhead) filler.prefetch(targets[j + 24]);
            if (j + 12 < lookAhead && targets[j + 12] < u) filler.prefetchPlace(targets[j + 12]);
            if (targets[j] < u) filler.add(targets[j], u);
        }
    });
    return brt;
}

void DominatorComputerSnca::compute() {
    logLine("_dcc: enter: N=", myN);
    int n = myN;
    int* idom = myIdom->getData();
    BigIntArray64Presized da1("da_1", n);
    int* ordinal = da1.getData();
    ZVector<int> roots;
    SemiNca::collectRoots(myRoots, myRootCount, roots);
    {
        BigIntArray64Presized da2("da_2", 2 * (int64_t)n);
        int reached = SemiNca::depthFirstSearchDom(*myGraph, roots, ordinal, da2.getData(), idom);
        logLine("_dcc: 1: n=", reached);
        KZT_ASSERT(reached == n);
    }
    renumberTargets(ordinal);

    BigIntArray64Presized da3("da_3", n);
    int* semi = da3.getData();
    RefTable* brt;
    {
        BigIntArray64Presized cursor("da_2", n);
        brt = computeBRT(roots, ordinal, cursor.getData(), semi);
    }
    myGraph->release();

    {
        BigIntArray64Presized da4("da_4", 2 * (int64_t)n);
        int* ancestorAndLabel = da4.getData();
        for (int i = 0; i < n; i++) {
            ancestorAndLabel[2 * (int64_t)i] = idom[i];
            ancestorAndLabel[2 * (int64_t)i + 1] = i;
        }
        ZVector<int, 1024> stack;
        const int* brtSc = brt->getStartAndCount();
        BigIntArray64& brtArea = brt->getMainArea();
        for (int i = n - 1; i >= 1; i--) {
            // Fetch the pairs of the predecessors of a node some way ahead.
            if (i > SEMI_PREFETCH_DISTANCE) {
                int j = i - SEMI_PREFETCH_DISTANCE;
                int start = brtSc[2 * (int64_t)j];
                int ahead = brtSc[2 * (int64_t)j + 1];
                if (start >= 0 && ahead > 0) {
                    const int* block = brtArea.getBlock(start);
                    int offset = start & BigIntArray64::BLOCK_MASK;
                    if (ahead > 8) ahead = 8;
                    if (ahead > BigIntArray64::BLOCK_SIZE - offset) ahead = BigIntArray64::BLOCK_SIZE - offset;
                    for (int k = 0; block != nullptr && k < ahead; k++) {
                        __builtin_prefetch(ancestorAndLabel + 2 * (int64_t)block[offset + k]);
                    }
                }
            }
            int count = brtSc[2 * (int64_t)i + 1];
            int s = semi[i];
            for (int k = 0; k < count;) {
                int available;
                const int* predecessors = brt->getRefsChunk(i, k, available);
                int chunk = SemiNca::semiDominator(i, predecessors, available, ancestorAndLabel, stack);
                if (chunk < s) s = chunk;
                k += available;
            }
            semi[i] = ancestorAndLabel[2 * (int64_t)i + 1] = s;
        }
        logLine("_dcc: 6: stack size (bytes): ", (int64_t)stack.getCapacity() * (int64_t)sizeof(int));
        delete brt;
    }

    SemiNca::nearestCommonAncestors(n, semi, idom);

    Logger::messageWithStats(ZString("_dcc: 8"));
    BigIntArray64Presized scratch("da_5", n);
    mapDominatorsToNodes(n, ordinal, idom, semi, scratch.getData());
    Logger::messageWithStats(ZString("_dcc: exit"));
}
