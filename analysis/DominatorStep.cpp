// The `dc` step: from the input file of the dominator step to its output file.
#include <memory>

#include "analysis/DominatorComputerSnca.h"
#include "analysis/DominatorFiles.h"
#include "analysis/NewDominatorSupport.h"
#include "services/Logger.h"

static bool refuse(const char* text, int64_t value) {
    ZString line(text);
    line.appendLong(value);
    Logger::message(line);
    return false;
}

static bool endOfInput(const ZString& path) {
    Logger::message(ZString("unexpected end of input file: ") + path);
    return false;
}

// Reads the references of nodes 1 to NC - 1 into `graph`. A count is valid
// when the rest of the file can hold that many references.
static bool readReferences(FileReader& reader, const ZString& path, RefTable& graph, int64_t& total) {
    int nc = graph.getSize();
    int64_t intsLeft = getFileSize(path.c_str()) / 4 - 1;
    BigIntArray64& area = graph.getMainArea();
    int* sc = graph.getStartAndCount();
    total = 0;
    for (int node = 1; node < nc; node++) {
        int32_t count;
        if (!reader.readIntLE(count)) return endOfInput(path);
        intsLeft--;
        if (count < 0 || count > intsLeft) return refuse("bad refCount: ", count);
        intsLeft -= count;
        graph.createRefs(node, count);
        int start = sc[2 * (int64_t)node];
        for (int k = 0; k < count; k++) {
            int32_t target;
            if (!reader.readIntLE(target)) return endOfInput(path);
            if (target < 0 || target >= nc) return refuse("bad target: ", target);
            if (start >= 0) {
                int64_t position = (int64_t)start + k;
                area.getBuffer(position, true)[position & BigIntArray64::BLOCK_MASK] = target;
            } else {
                graph.setRef(node, k, target);
            }
        }
        total += count;
    }
    return true;
}

bool dcImpl(const ZString& inputPath, const ZString& outputPath, const ZString& folder, const ZString& algorithm) {
    FileReader reader(inputPath.c_str());
    if (!reader.isOpen()) {
        Logger::message(ZString("Failed to open input file: ") + inputPath);
        return false;
    }
    IntFileWriter writer(outputPath.c_str());
    if (!writer.isOpen()) {
        Logger::message(ZString("Failed to open output file: ") + outputPath);
        return false;
    }
    Logger::message(ZString("Reading input: ") + inputPath);
    int32_t nc;
    if (!reader.readIntLE(nc)) return endOfInput(inputPath);
    // Every node takes at least its count, and the root count follows.
    if (nc < 1 || nc >= 0x3fffffff || nc - 1 > getFileSize(inputPath.c_str()) / 4 - 2) {
        return refuse("bad node count: ", nc);
    }

    std::unique_ptr<RefTable> graph(new RefTable("dc", nc));
    int64_t total;
    if (!readReferences(reader, inputPath, *graph, total)) return false;
    ZString refs("refs: ");
    refs.appendLong(total);
    Logger::messageWithStats(refs);

    int32_t rootCount;
    if (!reader.readIntLE(rootCount)) return endOfInput(inputPath);
    if (rootCount < 0 || rootCount > nc) return refuse("bad root count: ", rootCount);
    ZVector<int> roots(rootCount > 0 ? rootCount : 1);
    for (int r = 0; r < rootCount; r++) {
        int32_t root;
        if (!reader.readIntLE(root)) return endOfInput(inputPath);
        if (root < 1 || root >= nc) return refuse("bad root: ", root);
        roots.push(root);
    }
    ZString rootLine("roots: ");
    rootLine.appendLong(rootCount);
    Logger::message(rootLine);

    Logger::messageWithStats(ZString("creating idom..."));
    BigIntArray64Presized idom("idom", nc);
    if (algorithm.equals("snca")) {
        Logger::messageWithStats(ZString("starting DominatorComputerSnca..."));
        DominatorComputerSnca(nc, graph.get(), roots.getElements(), rootCount, &idom).compute();
    } else if (algorithm.equals("low_mem")) {
        Logger::messageWithStats(ZString("starting DominatorComputerSnca_LowMem (with files)..."));
        DominatorComputerSnca_LowMem(inputPath, nc, graph.get(), roots.getElements(), rootCount, &idom, folder)
            .compute();
    } else {
        Logger::message(ZString("error: unsupported algorithm: ") + algorithm);
        return false;
    }
    graph.reset();

    Logger::messageWithStats(ZString("Writing output: ") + outputPath);
    const int* result = idom.getData();
    for (int node = 1; node < nc; node++) writer.writeInt(result[node]);
    if (!writer.close()) {
        Logger::message(ZString("error: cannot write output: ") + writer.getError());
        return false;
    }
    return true;
}
