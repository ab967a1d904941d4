// The semi-NCA computation with less in memory: the forward graph is freed
// after the search and read again from the input file where a pass needs it;
// parents, depth-first numbers and the reversed graph go through temporary
// files that are read back in sequence.
#include <cstring>
#include <memory>

#include "analysis/DominatorComputerSnca.h"
#include "analysis/DominatorFiles.h"
#include "services/Logger.h"

static void logPhase(const char* text) {
    Logger::messageWithStats(ZString(text));
}

static void logValue(const char* text, int64_t value) {
    ZString line(text);
    line.appendLong(value);
    Logger::messageWithStats(line);
}

static void writeInts(const TemporaryIntFile& file, const int* values, int count) {
    std::unique_ptr<IntFileWriter> writer(file.openForWriting());
    for (int i = 0; i < count; i++) writer->writeInt(values[i]);
    if (!writer->close()) failFatal((ZString("Write error: ") + file.getPath()).c_str(), __FILE__, __LINE__);
}

DominatorComputerSnca_LowMem::DominatorComputerSnca_LowMem(const ZString& path, int n, RefTable* graph,
                                                           const int* roots, int rootCount,
                                                           BigIntArray64Presized* idom, const ZString& folder)
    : myPath(path), myN(n), myGraph(graph), myRoots(roots), myRootCount(rootCount), myIdom(idom),
      myFolder(folder) {
    KZT_ASSERT(n >= 1 && graph->getSize() == n && idom->getSize() >= n);
}

template <typename Edge>
void DominatorComputerSnca_LowMem::forEachInputEdge(Edge edge) {
    FileReader reader(myPath.c_str());
    if (!reader.isOpen()) failFatal((ZString("Failed to open file for reading: ") + myPath).c_str(), __FILE__, __LINE__);
    KZT_ASSERT(reader.seek(0));
    KZT_ASSERT(readIntOrFail(reader) == myN);
    for (int u = 1; u < myN; u++) {
        int count = readIntOrFail(reader);
        for (int k = 0; k < count; k++) edge(u, readIntOrFail(reader));
    }
}

void DominatorComputerSnca_LowMem::compute() {
    logValue("_dcc: enter: N=", myN);
    int n = myN;
    int* idom = myIdom->getData();
    TemporaryIntFile parentFile(myFolder, "_parent.tmp");
    TemporaryIntFile ordinalFile(myFolder, "_node2ordinal.tmp");
    TemporaryIntFile brtFile(myFolder, "_brt.tmp");
    ZVector<int> roots;
    SemiNca::collectRoots(myRoots, myRootCount, roots);

    // The search, over the graph as read; its results go to files.
    logPhase("_dcc: dfsd: 1 begin");
    std::unique_ptr<BigIntArray64Presized> da1(new BigIntArray64Presized("da_1", n));
    logPhase("_dcc: dfsd: 2 begin");
    {
        BigIntArray64Presized da2("da_2", 2 * (int64_t)n);
        logPhase("_dcc: dfsd: 3 begin");
        logPhase("_dcc: dfsd: 4 begin");
        // The parents, by ordinal, in the result array until they are in their file.
        int reached = SemiNca::depthFirstSearchDom(*myGraph, roots, da1->getData(), da2.getData(), idom);
        logPhase("_dcc: dfsd: 4 end");
        logValue("_dcc: 1: n=", reached);
        KZT_ASSERT(reached == n);
        std::unique_ptr<IntFileWriter> writer(parentFile.openForWriting());
        for (int k = 0; k < n; k++) writer->writeInt(idom[k]);
        if (!writer->close()) failFatal((ZString("Write error: ") + parentFile.getPath()).c_str(), __FILE__, __LINE__);
        logPhase("_dcc: dfsd: 3 end");
    }
    writeInts(ordinalFile, da1->getData(), n);
    logPhase("_dcc: dfsd: 2 end");
    myGraph->release();
    logPhase("_dcc: dfsd: 1 end");

    // The reversed graph in depth-first numbers, from two passes over the
    // input file, written to its file from the last node to the first.
    {
        const int* ordinal = da1->getData();
        logPhase("_dcc: brt: 1");
        RefTable brt("brt", n);
        int* sc = brt.getStartAndCount();
        forEachInputEdge([&](int, int target) { sc[2 * (int64_t)ordinal[target] + 1]++; });
        // Counted: its places go to the result array, free until the end.
        for (int r = 0; r < roots.getSize(); r++) sc[2 * (int64_t)ordinal[roots[r]] + 1]++;
        logPhase("_dcc: brt: 2");
        SemiNca::ReversedGraphFiller filler(brt, idom);
        logPhase("_dcc: brt: 3");
        for (int r = 0; r < roots.getSize(); r++) filler.add(ordinal[roots[r]], 0);
        forEachInputEdge([&](int source, int target) { filler.add(ordinal[target], ordinal[source]); });
        da1.reset();
        logPhase("_dcc: brt: 4");
        std::unique_ptr<IntFileWriter> writer(brtFile.openForWriting());
        for (int i = n - 1; i >= 1; i--) {
            int count = brt.getRefCount(i);
            writer->writeInt(count);
            for (int k = 0; k < count;) {
                int available;
                const int* predecessors = brt.getRefsChunk(i, k, available);
                writer->writeRaw(predecessors, available * (int)sizeof(int));
                k += available;
            }
        }
        if (!writer->close()) failFatal((ZString("Write error: ") + brtFile.getPath()).c_str(), __FILE__, __LINE__);
    }

    // Semidominators, kept in the result array: the nearest common
    // ancestors below overwrite each one only after reading it.
    int* semi = idom;
    {
        BigIntArray64Presized da4("da_4", 2 * (int64_t)n);
        int* ancestorAndLabel = da4.getData();
        std::unique_ptr<FileReader> parents(parentFile.openForReading());
        for (int i = 0; i < n; i++) {
            ancestorAndLabel[2 * (int64_t)i] = readIntOrFail(*parents);
            ancestorAndLabel[2 * (int64_t)i + 1] = semi[i] = i;
        }
        std::unique_ptr<FileReader> predecessorsIn(brtFile.openForReading());
        ZVector<int> chunk(4096);
        chunk.resize(4096);
        ZVector<int, 1024> stack;
        for (int i = n - 1; i >= 1; i--) {
            int count = readIntOrFail(*predecessorsIn);
            int s = i;
            while (count > 0) {
                int part = count < 4096 ? count : 4096;
                for (int k = 0; k < part; k++) chunk[k] = readIntOrFail(*predecessorsIn);
                int candidate = SemiNca::semiDominator(i, chunk.getElements(), part, ancestorAndLabel, stack);
                if (candidate < s) s = candidate;
                count -= part;
            }
            semi[i] = ancestorAndLabel[2 * (int64_t)i + 1] = s;
        }
        logValue("_dcc: 6: stack size (bytes): ", (int64_t)stack.getCapacity() * (int64_t)sizeof(int));
    }

    // Nearest common ancestors, the parents read again in order.
    {
        std::unique_ptr<FileReader> parents(parentFile.openForReading());
        readIntOrFail(*parents);
        for (int i = 1; i < n; i++) {
            int parent = readIntOrFail(*parents);
            idom[i] = SemiNca::nearestCommonAncestor(parent, semi[i], idom);
            SemiNca::logProgress(i, n);
        }
        idom[0] = 0;
    }

    // Back to the input's numbers, the depth-first numbers read in order.
    Logger::messageWithStats(ZString("_dcc: 8"));
    {
        BigIntArray64Presized da3("da_3", n);
        int* ordinalToNode = da3.getData();
        std::unique_ptr<FileReader> ordinals(ordinalFile.openForReading());
        for (int v = 0; v < n; v++) {
            int ordinal = readIntOrFail(*ordinals);
            KZT_ASSERT(ordinal >= 0 && ordinal < n);
            ordinalToNode[ordinal] = v;
        }
        for (int k = 1; k < n; k++) idom[k] = ordinalToNode[idom[k]];
    }
    {
        BigIntArray64Presized byNode("da_5", n);
        int* result = byNode.getData();
        std::unique_ptr<FileReader> ordinals(ordinalFile.openForReading());
        for (int v = 0; v < n; v++) {
            int ordinal = readIntOrFail(*ordinals);
            KZT_ASSERT(ordinal >= 0 && ordinal < n);
            result[v] = idom[ordinal];
        }
        result[0] = 0;
        memcpy(idom, result, sizeof(int) * (size_t)n);
    }
    Logger::messageWithStats(ZString("_dcc: exit"));
}
