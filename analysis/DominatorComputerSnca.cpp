#include "analysis/DominatorComputerSnca.h"

#include <cstring>

#include "services/Logger.h"

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

int SemiNca::depthFirstSearchDom(RefTable& graph, const ZVector<int>& roots, int* ordinal, int* parentAndCursor) {
    int n = graph.getSize();
    const int* sc = graph.getStartAndCount();
    memset(ordinal, 0xff, sizeof(int) * (size_t)n);
    ordinal[0] = 0;
    parentAndCursor[0] = 0;
    int next = 1;
    for (int r = 0; r < roots.getSize(); r++) {
        int root = roots[r];
        if (ordinal[root] >= 0) continue;
        ordinal[root] = next++;
        parentAndCursor[2 * (int64_t)root] = 0;
        parentAndCursor[2 * (int64_t)root + 1] = 0;
        // The path from the root is kept in the parents: no stack of our own.
        int v = root;
        while (v != 0) {
            int* state = parentAndCursor + 2 * (int64_t)v;
            int k = state[1];
            int count = sc[2 * (int64_t)v + 1];
            int found = -1;
            if (k == 0 && count > 0) {
                // First visit: the search will look at these targets' numbers.
                int available;
                const int* targets = graph.getRefsChunk(v, 0, available);
                for (int j = 0; j < available && j < 16; j++) {
                    __builtin_prefetch(ordinal + targets[j]);
                    __builtin_prefetch(sc + 2 * (int64_t)targets[j]);
                }
            }
            while (k < count && found < 0) {
                int available;
                const int* targets = graph.getRefsChunk(v, k, available);
                for (int j = 0; j < available; j++) {
                    if (j + 8 < available) __builtin_prefetch(ordinal + targets[j + 8]);
                    if (ordinal[targets[j]] < 0) {
                        found = targets[j];
                        k += j + 1;
                        break;
                    }
                }
                if (found < 0) k += available;
            }
            if (found < 0) {
                v = state[0];
                continue;
            }
            state[1] = k;
            ordinal[found] = next++;
            parentAndCursor[2 * (int64_t)found] = v;
            parentAndCursor[2 * (int64_t)found + 1] = 0;
            __builtin_prefetch(sc + 2 * (int64_t)found);
            v = found;
        }
    }
    return next;
}

void SemiNca::parentsByOrdinal(int n, const int* ordinal, int* parentAndCursor) {
    for (int v = 0; v < n; v++) {
        parentAndCursor[2 * (int64_t)ordinal[v] + 1] = ordinal[parentAndCursor[2 * (int64_t)v]];
    }
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

void DominatorComputerSnca::renumberGraph(const int* ordinal) {
    BigIntArray64& area = myGraph->getMainArea();
    int64_t used = myGraph->getNextFree();
    for (int64_t position = 0; position < used; position += BigIntArray64::BLOCK_SIZE) {
        int* block = area.getBuffer(position, false);
        if (block == nullptr) continue;
        int64_t end = used - position < BigIntArray64::BLOCK_SIZE ? used - position : BigIntArray64::BLOCK_SIZE;
        for (int64_t j = 0; j < end; j++) block[j] = ordinal[block[j]];
    }
    int* sc = myGraph->getStartAndCount();
    BigIntArray64Presized renumbered("da_sc", 2 * (int64_t)myN);
    int* out = renumbered.getData();
    for (int v = 0; v < myN; v++) {
        int start = sc[2 * (int64_t)v];
        int count = sc[2 * (int64_t)v + 1];
        if (start < 0) {
            int* extra = myGraph->getExtraArray(-start);
            for (int j = 0; extra != nullptr && j < count; j++) extra[j] = ordinal[extra[j]];
        }
        int64_t k = 2 * (int64_t)ordinal[v];
        out[k] = start;
        out[k + 1] = count;
    }
    myGraph->replaceStartAndCount(&renumbered);
}

RefTable* DominatorComputerSnca::computeBRT(const ZVector<int>& roots, const int* ordinal, int* cursor) {
    RefTable* brt = new RefTable("brt", myN);
    int* counts = brt->getStartAndCount();
    // Predecessor counts, from the last node to the first; the virtual root
    // precedes every root.
    for (int u = myN - 1; u >= 0; u--) {
        int count = myGraph->getRefCount(u);
        for (int k = 0; k < count;) {
            int available;
            const int* targets = myGraph->getRefsChunk(u, k, available);
            for (int j = 0; j < available; j++) {
                if (j + 8 < available) __builtin_prefetch(counts + 2 * (int64_t)targets[j + 8] + 1);
                counts[2 * (int64_t)targets[j] + 1]++;
            }
            k += available;
        }
    }
    for (int r = 0; r < roots.getSize(); r++) counts[2 * (int64_t)ordinal[roots[r]] + 1]++;
    SemiNca::ReversedGraphFiller filler(*brt, cursor);
    for (int r = 0; r < roots.getSize(); r++) filler.add(ordinal[roots[r]], 0);
    for (int u = 0; u < myN; u++) {
        int count = myGraph->getRefCount(u);
        for (int k = 0; k < count;) {
            int available;
            const int* targets = myGraph->getRefsChunk(u, k, available);
            for (int j = 0; j < available; j++) {
                if (j + 16 < available) filler.prefetch(targets[j + 16]);
                if (j + 8 < available) filler.prefetchPlace(targets[j + 8]);
                filler.add(targets[j], u);
            }
            k += available;
        }
    }
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
        int reached = SemiNca::depthFirstSearchDom(*myGraph, roots, ordinal, da2.getData());
        logLine("_dcc: 1: n=", reached);
        KZT_ASSERT(reached == n);
        int* parents = da2.getData();
        SemiNca::parentsByOrdinal(n, ordinal, parents);
        for (int k = 0; k < n; k++) idom[k] = parents[2 * (int64_t)k + 1];
    }
    renumberGraph(ordinal);

    RefTable* brt;
    {
        BigIntArray64Presized cursor("da_2", n);
        brt = computeBRT(roots, ordinal, cursor.getData());
    }
    myGraph->release();

    BigIntArray64Presized da3("da_3", n);
    int* semi = da3.getData();
    {
        BigIntArray64Presized da4("da_4", 2 * (int64_t)n);
        int* ancestorAndLabel = da4.getData();
        for (int i = 0; i < n; i++) {
            semi[i] = i;
            ancestorAndLabel[2 * (int64_t)i] = idom[i];
            ancestorAndLabel[2 * (int64_t)i + 1] = i;
        }
        ZVector<int, 1024> stack;
        const int* brtSc = brt->getStartAndCount();
        BigIntArray64& brtArea = brt->getMainArea();
        for (int i = n - 1; i >= 1; i--) {
            // Fetch the pairs of the predecessors of a node some way ahead.
            if (i > 8) {
                int j = i - 8;
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
            int s = i;
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
