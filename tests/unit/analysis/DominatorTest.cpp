// The dominator step: immediate dominators of generated graphs of many shapes
// against reference algorithms, both algorithms against each other, and the
// messages for bad input files.
#include <functional>

#include "analysis/DominatorComputerSnca.h"
#include "analysis/NewDominatorSupport.h"
#include "foundation/Failure.h"
#include "unit/analysis/GraphSupport.h"

namespace {

Graph fan(int width) {
    Graph g;
    int hub = g.add();
    for (int k = 0; k < width; k++) g.edge(hub, g.add());
    int sink = g.add();
    for (int v = 2; v < sink; v += 3) g.edge(v, sink);
    g.roots = {hub};
    return g;
}

Graph cycle(int n) {
    Graph g = chain(n);
    g.edge(n - 1, 1);
    g.edge(n / 2, 2);
    return g;
}

Graph diamonds(int count) {
    Graph g;
    int top = g.add();
    g.roots = {top};
    for (int k = 0; k < count; k++) {
        int left = g.add(), right = g.add(), bottom = g.add();
        g.edge(top, left);
        g.edge(top, right);
        g.edge(left, bottom);
        g.edge(right, bottom);
        top = bottom;
    }
    return g;
}

// Parts reachable from one root only, from several, and one cut off that
// only the catch-all root reaches; roots repeat.
Graph severalRoots() {
    Graph g;
    for (int v = 1; v < 12; v++) g.add();
    g.roots = {1, 5, 1, 9};
    g.edge(1, 2); g.edge(2, 3); g.edge(3, 4);
    g.edge(5, 3); g.edge(5, 6); g.edge(6, 7); g.edge(7, 6);
    g.edge(9, 10); g.edge(10, 9); g.edge(10, 1);
    g.edge(11, 4);
    rootEverything(g);
    return g;
}

// A node of 300 references, some repeated, one to itself, one to a root.
Graph wideNode() {
    Graph g;
    int root = g.add(), wide = g.add();
    g.edge(root, wide);
    for (int k = 0; k < 150; k++) g.edge(wide, g.add());
    for (int k = 0; k < 150; k++) g.edge(wide, 3 + (k * 7) % 150);
    g.edge(wide, wide);
    g.edge(wide, root);
    g.edge(40, 41);
    g.roots = {root};
    return g;
}

Graph randomGraph(int n, int edges, uint32_t seed) {
    std::mt19937 random(seed);
    Graph g;
    for (int v = 1; v < n; v++) g.add();
    for (int e = 0; e < edges; e++) g.edge(1 + random() % (n - 1), 1 + random() % (n - 1));
    g.roots = {1 + (int)(random() % (n - 1))};
    rootEverything(g);
    return g;
}

struct Shape {
    const char* name;
    std::function<Graph()> make;
};

const std::vector<Shape>& shapes() {
    static const std::vector<Shape> all = {
        {"single node", [] { Graph g; g.add(); g.roots = {1}; return g; }},
        {"chain", [] { return chain(50); }},
        {"fan", [] { return fan(40); }},
        {"cycle", [] { return cycle(30); }},
        {"diamonds", [] { return diamonds(12); }},
        {"several roots", severalRoots},
        {"node with more than 128 references", wideNode},
        {"sparse random", [] { return randomGraph(120, 150, 1); }},
        {"dense random", [] { return randomGraph(60, 600, 2); }},
        {"heap-like", [] { return heapLikeGraph(400, 3, 5); }},
        {"heap-like, many roots", [] { return heapLikeGraph(300, 4, 60); }},
    };
    return all;
}

class DominatorStepTest : public ::testing::Test {
protected:
    // Runs the step on `g` and returns idom[0..n-1], idom[0] = 0.
    std::vector<int> run(const Graph& g, const char* algorithm) {
        writeInts(in, inputFileInts(g));
        bool done = dcImpl(ZString(in.c_str()), ZString(out.c_str()), ZString(folder.path.c_str()), ZString(algorithm));
        EXPECT_TRUE(done) << algorithm;
        std::vector<int> idom = readInts(out);
        idom.insert(idom.begin(), 0);
        return idom;
    }

    ScratchFolder folder;
    std::string in = folder.file("graph.in");
    std::string out = folder.file("graph.idom");
};

TEST_F(DominatorStepTest, ShapesAgreeWithTheDefinition) {
    for (const Shape& shape : shapes()) {
        Graph g = shape.make();
        std::vector<int> expected = dominatorsByRemoval(g);
        EXPECT_EQ(expected, dominatorsIterative(g)) << shape.name;
        EXPECT_EQ(expected, run(g, "snca")) << shape.name;
        EXPECT_EQ(expected, run(g, "low_mem")) << shape.name;
    }
}

// Nodes whose references lie outside the main area (in arrays of their own,
// as past two billion references) are read and renumbered alike.
TEST(DominatorComputerTest, ReferencesOutsideTheMainArea) {
    for (const Shape& shape : shapes()) {
        Graph g = shape.make();
        RefTable graph("t", g.n, 40);
        setRefs(graph, g);
        BigIntArray64Presized idom("idom", g.n);
        DominatorComputerSnca(g.n, &graph, g.roots.data(), (int)g.roots.size(), &idom).compute();
        std::vector<int> got(idom.getData(), idom.getData() + g.n);
        EXPECT_EQ(dominatorsByRemoval(g), got) << shape.name;
    }
}

TEST_F(DominatorStepTest, ManyRandomGraphs) {
    for (uint32_t seed = 10; seed < 70; seed++) {
        int n = 2 + seed % 40;
        Graph g = seed % 2 ? randomGraph(n, (int)(n * (seed % 5)), seed) : heapLikeGraph(n, seed, 1 + seed % 4);
        std::vector<int> expected = dominatorsByRemoval(g);
        EXPECT_EQ(expected, run(g, "snca")) << "seed " << seed;
        EXPECT_EQ(expected, run(g, "low_mem")) << "seed " << seed;
    }
}

TEST_F(DominatorStepTest, MillionsOfNodes) {
    struct Big {
        const char* name;
        Graph g;
    };
    std::vector<Big> graphs;
    graphs.push_back({"heap-like, 2.5 million", heapLikeGraph(2500000, 77, 1000)});
    graphs.push_back({"chain, 1.5 million", chain(1500000)});
    graphs.back().g.edge(1400000, 3);
    for (Big& big : graphs) {
        std::vector<int> expected = dominatorsIterative(big.g);
        EXPECT_TRUE(expected == run(big.g, "snca")) << big.name;
        EXPECT_TRUE(expected == run(big.g, "low_mem")) << big.name;
    }
}

TEST_F(DominatorStepTest, LowMemLeavesNoTemporaryFiles) {
    run(diamonds(3), "low_mem");
    std::string list = folder.path + "/kzttmp_*";
    EXPECT_NE(0, std::system(("ls " + list + " >/dev/null 2>&1").c_str()));
}

struct BadInput {
    const char* name;
    std::vector<int32_t> ints;
    const char* algorithm;
    const char* message;
};

TEST_F(DominatorStepTest, BadInputFilesAreRefused) {
    std::vector<BadInput> cases = {
        {"negative refCount", {3, 1, 2, -1}, "snca", "bad refCount: -1"},
        {"refCount past the end of the file", {3, 1000, 1, 1, 1}, "snca", "bad refCount: 1000"},
        {"target past the nodes", {3, 1, 3, 0, 1, 1}, "snca", "bad target: 3"},
        {"negative target", {3, 1, -7, 0, 1, 1}, "low_mem", "bad target: -7"},
        {"root 0", {3, 1, 2, 0, 1, 0}, "snca", "bad root: 0"},
        {"root past the nodes", {3, 1, 2, 0, 2, 1, 5}, "snca", "bad root: 5"},
        {"root count too large", {3, 1, 2, 0, 9, 1}, "snca", "bad root count: 9"},
        {"node count 0", {0}, "snca", "bad node count: 0"},
        {"more nodes than the file holds", {1000000, 0, 0, 0}, "snca", "bad node count: 1000000"},
        {"cut in the references", {3, 5, 2, 1}, "snca", "bad refCount: 5"},
        {"cut in the roots", {3, 1, 2, 0, 2, 1}, "low_mem", "unexpected end of input file: "},
        {"empty file", {}, "snca", "unexpected end of input file: "},
        {"unknown algorithm", {2, 0, 1, 1}, "fast", "error: unsupported algorithm: fast"},
    };
    for (const BadInput& bad : cases) {
        CapturedLog log;
        writeInts(in, bad.ints);
        EXPECT_FALSE(dcImpl(ZString(in.c_str()), ZString(out.c_str()), ZString(""), ZString(bad.algorithm))) << bad.name;
        EXPECT_TRUE(log.has(bad.message)) << bad.name << "\n" << log.content();
    }
}

TEST_F(DominatorStepTest, MissingFilesAndUnreachableNodes) {
    CapturedLog log;
    EXPECT_FALSE(dcImpl(ZString("/nonexistent/in"), ZString(out.c_str()), ZString(""), ZString("snca")));
    EXPECT_TRUE(log.has("Failed to open input file: /nonexistent/in"));
    writeInts(in, {2, 0, 1, 1});
    EXPECT_FALSE(dcImpl(ZString(in.c_str()), ZString("/nonexistent/out"), ZString(""), ZString("snca")));
    EXPECT_TRUE(log.has("Failed to open output file: /nonexistent/out"));

    // Node 2 is not reachable from root 1: the reached count is short.
    writeInts(in, {3, 0, 0, 1, 1});
    for (const char* algorithm : {"snca", "low_mem"}) {
        EXPECT_THROW(dcImpl(ZString(in.c_str()), ZString(out.c_str()), ZString(""), ZString(algorithm)),
                     KZTRuntimeException);
    }
    EXPECT_TRUE(log.has("_dcc: 1: n=2"));
}

TEST_F(DominatorStepTest, LogsEveryPhase) {
    CapturedLog log;
    run(diamonds(2), "snca");
    run(diamonds(2), "low_mem");
    for (const char* line : {"Reading input: ", "refs: 8", "roots: 1", "creating idom...", "BIA_P=idom size=8 (0 MB)",
                             "starting DominatorComputerSnca...", "_dcc: enter: N=8", "_dcc: 1: n=8",
                             "_dcc: 6: stack size (bytes): ", "_dcc: 8", "_dcc: exit", "Writing output: ",
                             "starting DominatorComputerSnca_LowMem (with files)...", "_dcc: dfsd: 1 begin",
                             "_dcc: dfsd: 4 begin", "_dcc: dfsd: 4 end", "_dcc: dfsd: 1 end", "_dcc: brt: 1",
                             "_dcc: brt: 4", "File opened for writing: ", "_parent.tmp", "_node2ordinal.tmp",
                             "_brt.tmp"}) {
        EXPECT_TRUE(log.has(line)) << line;
    }
}

}  // namespace
