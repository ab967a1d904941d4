// The walks over a storage: reachable sets over all and over strong
// references, and distances from the GC roots, against plain searches.
#include "analysis/Reachability.h"
#include "foundation/Failure.h"
#include "unit/analysis/GraphSupport.h"

namespace {

// A storage holding `g` (objects 1 to n - 1, references as given).
std::unique_ptr<ObjectStorage> storageOf(const Graph& g) {
    std::unique_ptr<ObjectStorage> storage(new ObjectStorage(g.n - 1));
    setRefs(storage->getRefs(), g);
    return storage;
}

std::vector<int> bitsFor(int n) {
    return std::vector<int>((n + 31) / 32, 0);
}

std::vector<int> marked(const std::vector<int>& bits, int n) {
    std::vector<int> objects;
    for (int v = 1; v < n; v++) if (Reachability::isMarked(bits.data(), v)) objects.push_back(v);
    return objects;
}

std::vector<int> reachableByBfs(const std::vector<std::vector<int>>& succ, const std::vector<int>& starts,
                                std::vector<int> already) {
    std::vector<int> depth = distancesByBfs(succ, starts);
    std::vector<int> objects;
    for (size_t v = 1; v < succ.size(); v++) {
        if (depth[v] >= 0 || std::find(already.begin(), already.end(), (int)v) != already.end()) objects.push_back((int)v);
    }
    return objects;
}

std::vector<Graph> graphs() {
    std::vector<Graph> all;
    for (uint32_t seed = 1; seed < 25; seed++) all.push_back(heapLikeGraph(20 + seed * 37, seed, 1 + seed % 3));
    Graph self;
    self.add();
    self.add();
    self.edge(1, 1);
    self.edge(1, 2);
    self.edge(2, 1);
    self.roots = {1};
    all.push_back(self);
    // Nulls among the references, and an object of more than a block.
    Graph wide;
    int hub = wide.add();
    for (int k = 0; k < 50; k++) wide.add();
    for (int k = 0; k < 0x100010; k++) wide.edge(hub, k % 7 == 0 ? 0 : 2 + k % 50);
    wide.roots = {1};
    all.push_back(wide);
    return all;
}

TEST(Reachability, MarksWhatABreadthFirstSearchReaches) {
    for (const Graph& g : graphs()) {
        std::unique_ptr<ObjectStorage> storage = storageOf(g);
        std::mt19937 random(g.n);
        std::vector<int> starts{1 + (int)(random() % (g.n - 1)), 1 + (int)(random() % (g.n - 1))};
        std::vector<int> visited = bitsFor(g.n);
        int preset = g.n - 1;
        Reachability::mark(visited.data(), preset);  // already visited: not walked through
        std::vector<std::vector<int>> succ = g.succ;
        succ[preset].clear();
        std::vector<int> walkStarts;
        for (int s : starts) if (s != preset) walkStarts.push_back(s);
        ZVector<int> stack;
        for (int s : walkStarts) {
            if (!Reachability::isMarked(visited.data(), s)) Reachability::markAsVisited(*storage, s, visited.data(), stack);
        }
        EXPECT_TRUE(stack.isEmpty());
        std::vector<std::vector<int>> cut = succ;
        for (auto& targets : cut) targets.erase(std::remove(targets.begin(), targets.end(), preset), targets.end());
        EXPECT_EQ(reachableByBfs(cut, walkStarts, {preset}), marked(visited, g.n)) << "n=" << g.n;
    }
    ObjectStorage storage(3);
    std::vector<int> visited = bitsFor(4);
    ZVector<int> stack;
    EXPECT_THROW(Reachability::markAsVisited(storage, 0, visited.data(), stack), KZTRuntimeException);
}

TEST(Reachability, StrongWalkLeavesOutTheExcludedReferences) {
    for (const Graph& g : graphs()) {
        std::unique_ptr<ObjectStorage> storage = storageOf(g);
        // Exclude reference 1 of objects whose reference 0 is 2, and
        // reference 0 of object 1.
        std::vector<int> excluded{2, 1, 5, 0};
        std::vector<std::vector<int>> strong = g.succ;
        for (int v = 1; v < g.n; v++) {
            std::vector<int>& targets = strong[v];
            bool firstIs2 = !g.succ[v].empty() && g.succ[v][0] == 2;
            bool firstIs5 = !g.succ[v].empty() && g.succ[v][0] == 5;
            for (size_t k = 0; k < targets.size(); k++) {
                if ((v == 1 && k == 0) || (firstIs2 && k == 1) || (firstIs5 && k == 0)) targets[k] = 0;
            }
        }
        std::vector<int> visited = bitsFor(g.n);
        ZVector<int> stack;
        Reachability::markAsVisitedStrong(*storage, 1, visited.data(), excluded.data(), 4, 1, 0, stack);
        EXPECT_EQ(reachableByBfs(strong, {1}, {}), marked(visited, g.n)) << "n=" << g.n;
        EXPECT_THROW(Reachability::markAsVisitedStrong(*storage, 1, visited.data(), excluded.data(), 3, 1, 0, stack),
                     KZTRuntimeException);
    }
}

TEST(Reachability, DepthsAreBreadthFirstDistances) {
    for (Graph g : graphs()) {
        g.roots.push_back(g.roots[0]);  // a repeated root keeps depth 0
        std::unique_ptr<ObjectStorage> storage = storageOf(g);
        Reachability::calculateDepthToGcRoot(*storage, g.roots.data(), (int)g.roots.size());
        std::vector<int> expected = distancesByBfs(g.succ, g.roots);
        for (int v = 1; v < g.n; v++) ASSERT_EQ(expected[v], storage->getDepthToGcRoot(v)) << "n=" << g.n << " v=" << v;
    }
    // A chain longer than a byte: the depths past 254 come back whole, and an
    // object no root reaches stays at -1.
    Graph line = chain(999);
    line.add();
    std::unique_ptr<ObjectStorage> storage = storageOf(line);
    Reachability::calculateDepthToGcRoot(*storage, line.roots.data(), 1);
    EXPECT_EQ(997, storage->getDepthToGcRoot(998));
    EXPECT_EQ(253, storage->getDepthToGcRoot(254));
    EXPECT_EQ(-1, storage->getDepthToGcRoot(999));
}

}  // namespace
