// Graphs for the heap-analysis tests: generated shapes, the files of the
// dominator step, and plain reference algorithms to check against.
#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "unit/ScratchFolder.h"
#include "unit/services/LoggerCapture.h"

// Nodes 1 to n - 1 with successors; node 0 is the virtual root, whose
// successors are `roots`.
struct Graph {
    int n = 1;
    std::vector<std::vector<int>> succ{1};
    std::vector<int> roots;

    int add() {
        succ.emplace_back();
        return n++;
    }
    void edge(int from, int to) { succ[from].push_back(to); }
};

// 1 -> 2 -> ... -> n - 1, rooted at 1.
inline Graph chain(int n) {
    Graph g;
    for (int v = 1; v < n; v++) g.add();
    for (int v = 1; v + 1 < n; v++) g.edge(v, v + 1);
    g.roots = {1};
    return g;
}

// The references of every node of `g` into a reference table.
template <class Refs>
void setRefs(Refs& refs, int object, const std::vector<int>& targets) {
    refs.createRefs(object, (int)targets.size());
    for (size_t k = 0; k < targets.size(); k++) refs.setRef(object, (int)k, targets[k]);
}
template <class Refs>
void setRefs(Refs& refs, const Graph& g) {
    for (int v = 1; v < g.n; v++) setRefs(refs, v, g.succ[v]);
}

// Every node reachable: a root per component that the walk misses.
inline void rootEverything(Graph& g) {
    std::vector<char> seen(g.n, 0);
    auto walk = [&](int start) {
        std::vector<int> stack{start};
        seen[start] = 1;
        while (!stack.empty()) {
            int v = stack.back();
            stack.pop_back();
            for (int t : g.succ[v]) {
                if (!seen[t]) {
                    seen[t] = 1;
                    stack.push_back(t);
                }
            }
        }
    };
    for (int r : g.roots) if (!seen[r]) walk(r);
    for (int v = 1; v < g.n; v++) {
        if (!seen[v]) {
            g.roots.push_back(v);
            walk(v);
        }
    }
}

// Heap-like: power-law fan-out, shared subgraphs, long chains, back edges.
inline Graph heapLikeGraph(int n, uint32_t seed, int rootCount) {
    std::mt19937 random(seed);
    Graph g;
    for (int v = 1; v < n; v++) g.add();
    for (int v = 1; v < n; v++) {
        double u = std::uniform_real_distribution<double>(0.0, 1.0)(random);
        int fanOut = (int)(0.9 / (u + 0.01)) % 300;  // mostly 0 to 3, a few in the hundreds
        if (fanOut > 0 && random() % 4 == 0) fanOut = 1;
        for (int k = 0; k < fanOut; k++) {
            int t;
            int kind = random() % 10;
            if (kind < 6) t = v + 1 + random() % 64;                 // nearby, as allocation order
            else if (kind < 8) t = 1 + random() % (n - 1);           // anywhere
            else if (kind < 9) t = 1 + random() % std::max(1, n / 100);  // shared hubs
            else t = v > 1 ? 1 + random() % (v - 1) : 1;             // back edge
            if (t >= n) t = 1 + random() % (n - 1);
            g.edge(v, t);
        }
        if (random() % 8 != 0 && v + 1 < n) g.edge(v, v + 1);  // long chains
    }
    for (int r = 0; r < rootCount && r < n - 1; r++) g.roots.push_back(1 + random() % (n - 1));
    rootEverything(g);
    return g;
}

// ---- Files ----

inline void writeInts(const std::string& path, const std::vector<int32_t>& ints) {
    FILE* f = fopen(path.c_str(), "wb");
    ASSERT_NE(nullptr, f);
    if (!ints.empty()) fwrite(ints.data(), 4, ints.size(), f);
    fclose(f);
}

inline std::vector<int32_t> readInts(const std::string& path) {
    std::vector<int32_t> ints;
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) return ints;
    int32_t value;
    while (fread(&value, 4, 1, f) == 1) ints.push_back(value);
    fclose(f);
    return ints;
}

inline std::vector<int32_t> inputFileInts(const Graph& g) {
    std::vector<int32_t> ints{g.n};
    for (int v = 1; v < g.n; v++) {
        ints.push_back((int)g.succ[v].size());
        ints.insert(ints.end(), g.succ[v].begin(), g.succ[v].end());
    }
    ints.push_back((int)g.roots.size());
    ints.insert(ints.end(), g.roots.begin(), g.roots.end());
    return ints;
}

// ---- Reference algorithms ----

// Immediate dominators by the definition: d dominates v when v cannot be
// reached with d taken away. For small graphs.
inline std::vector<int> dominatorsByRemoval(const Graph& g) {
    int n = g.n;
    auto reachableWithout = [&](int removed) {
        std::vector<char> seen(n, 0);
        std::vector<int> stack;
        for (int r : g.roots) {
            if (r != removed && !seen[r]) {
                seen[r] = 1;
                stack.push_back(r);
            }
        }
        while (!stack.empty()) {
            int v = stack.back();
            stack.pop_back();
            for (int t : g.succ[v]) {
                if (t != removed && t != 0 && !seen[t]) {
                    seen[t] = 1;
                    stack.push_back(t);
                }
            }
        }
        return seen;
    };
    std::vector<std::vector<int>> dominators(n);  // strict dominators of each node
    for (int d = 1; d < n; d++) {
        std::vector<char> seen = reachableWithout(d);
        for (int v = 1; v < n; v++) {
            if (v != d && !seen[v]) dominators[v].push_back(d);
        }
    }
    // The immediate one is the strict dominator that all the others dominate:
    // the one with the most dominators of its own.
    std::vector<int> idom(n, 0);
    for (int v = 1; v < n; v++) {
        size_t best = 0;
        for (int d : dominators[v]) {
            if (dominators[d].size() + 1 > best) {
                best = dominators[d].size() + 1;
                idom[v] = d;
            }
        }
    }
    return idom;
}

// Immediate dominators by the iterative data-flow method over a reverse
// postorder (intersecting up the tree until nothing changes).
inline std::vector<int> dominatorsIterative(const Graph& g) {
    int n = g.n;
    std::vector<int> order;  // postorder
    std::vector<int> post(n, -1);
    std::vector<char> seen(n, 0);
    std::vector<std::pair<int, size_t>> stack;
    seen[0] = 1;
    stack.push_back({0, 0});
    while (!stack.empty()) {
        int v = stack.back().first;
        const std::vector<int>& next = v == 0 ? g.roots : g.succ[v];
        size_t& k = stack.back().second;
        if (k < next.size()) {
            int t = next[k++];
            if (!seen[t]) {
                seen[t] = 1;
                stack.push_back({t, 0});
            }
        } else {
            post[v] = (int)order.size();
            order.push_back(v);
            stack.pop_back();
        }
    }
    std::vector<std::vector<int>> pred(n);
    for (int r : g.roots) pred[r].push_back(0);
    for (int v = 1; v < n; v++) for (int t : g.succ[v]) pred[t].push_back(v);
    std::vector<int> idom(n, -1);
    idom[0] = 0;
    bool changed = true;
    while (changed) {
        changed = false;
        for (int k = (int)order.size() - 2; k >= 0; k--) {
            int v = order[k];
            int newIdom = -1;
            for (int p : pred[v]) {
                if (idom[p] < 0) continue;
                if (newIdom < 0) {
                    newIdom = p;
                    continue;
                }
                int a = p, b = newIdom;
                while (a != b) {
                    while (post[a] < post[b]) a = idom[a];
                    while (post[b] < post[a]) b = idom[b];
                }
                newIdom = a;
            }
            if (idom[v] != newIdom) {
                idom[v] = newIdom;
                changed = true;
            }
        }
    }
    return idom;
}

// Breadth-first distances from the roots over `succ`, -1 where none reach.
inline std::vector<int> distancesByBfs(const std::vector<std::vector<int>>& succ, const std::vector<int>& roots) {
    std::vector<int> depth(succ.size(), -1);
    std::vector<int> front;
    for (int r : roots) {
        if (depth[r] < 0) front.push_back(r);
        depth[r] = 0;
    }
    for (size_t k = 0; k < front.size(); k++) {
        int v = front[k];
        for (int t : succ[v]) {
            if (t != 0 && depth[t] < 0) {
                depth[t] = depth[v] + 1;
                front.push_back(t);
            }
        }
    }
    return depth;
}
