// bench_dominators gen <nodes> <seed> <file>: writes a heap-like graph as an
//   input file of the dominator step.
// bench_dominators dc <input> <output> <snca|low_mem|load> <folder>: runs the
//   step and prints "RESULT <ms> <peak bytes>"; "load" only reads the input.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "analysis/NewDominatorSupport.h"
#include "bench/dominators/BenchSupport.h"

namespace {

struct Random {
    uint64_t state;
    uint64_t next() {
        state += 0x9e3779b97f4a7c15ULL;
        uint64_t z = state;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    int below(int n) { return (int)(next() % (uint64_t)n); }
    double unit() { return (double)(next() >> 11) / 9007199254740992.0; }
};

// Every node but the first hangs below an earlier one: mostly the one just
// before (long chains), else a recent one or a hub. On top come power-law
// fan-outs into shared subgraphs, cross edges and back edges. Node 1 and one
// node in 20000 are roots.
int generate(int n, uint64_t seed, const char* path) {
    Random random{seed};
    std::vector<int> parent(n, 0);
    std::vector<uint32_t> extra(n, 0);
    int64_t edges = 0;
    for (int v = 2; v < n; v++) {
        int kind = random.below(100);
        if (kind < 70) parent[v] = v - 1;
        else if (kind < 95) parent[v] = v - 1 - random.below(v - 1 < 5000 ? v - 1 : 5000);
        else parent[v] = 1 + (int)((double)(v - 1) * random.unit() * random.unit() * random.unit());
        edges++;
    }
    std::vector<int64_t> start(n + 1, 0);
    for (int v = 2; v < n; v++) start[parent[v] + 1]++;
    for (int v = 1; v < n; v++) {
        // Power law (tail exponent 4/3): most objects hold none or a few
        // references besides, some thousands.
        double fanOutReal = pow(1.0 - random.unit(), -0.75) - 1.0;
        int fanOut = fanOutReal > 5000 ? 5000 : (int)fanOutReal;
        extra[v] = (uint32_t)fanOut;
        start[v + 1] += fanOut;
        edges += fanOut;
    }
    for (int v = 1; v <= n; v++) start[v] += start[v - 1];
    std::vector<int> targets(edges);
    std::vector<int64_t> fill(start.begin(), start.end() - 1);
    for (int v = 2; v < n; v++) targets[fill[parent[v]]++] = v;
    int shared = n / 100 > 1 ? n / 100 : 1;
    for (int v = 1; v < n; v++) {
        for (uint32_t k = 0; k < extra[v]; k++) {
            int kind = random.below(10);
            int t;
            if (kind < 5) t = v + 1 + random.below(256);           // a shared subgraph nearby
            else if (kind < 8) t = 1 + random.below(shared);     // hubs shared by all
            else if (kind < 9) t = 1 + random.below(n - 1);      // anywhere
            else t = v > 1 ? 1 + random.below(v - 1) : 1;        // back edge
            targets[fill[v]++] = t < n ? t : 1 + random.below(n - 1);
        }
    }
    FILE* out = fopen(path, "wb");
    if (out == nullptr) return 1;
    static char buffer[1 << 20];
    setvbuf(out, buffer, _IOFBF, sizeof(buffer));
    int32_t count = n;
    fwrite(&count, 4, 1, out);
    for (int v = 1; v < n; v++) {
        count = (int32_t)(start[v + 1] - start[v]);
        fwrite(&count, 4, 1, out);
        fwrite(&targets[start[v]], 4, count, out);
    }
    std::vector<int> roots{1};
    for (int v = 2; v < n; v++) if (random.below(20000) == 0) roots.push_back(v);
    count = (int32_t)roots.size();
    fwrite(&count, 4, 1, out);
    fwrite(roots.data(), 4, roots.size(), out);
    fclose(out);
    printf("nodes %d references %lld roots %d\n", n - 1, (long long)edges, (int)roots.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && strcmp(argv[1], "gen") == 0) return generate(atoi(argv[2]), strtoull(argv[3], nullptr, 10), argv[4]);
    if (argc == 6 && strcmp(argv[1], "dc") == 0) {
        int64_t start = nowNs();
        bool load = strcmp(argv[4], "load") == 0;
        bool done = dcImpl(ZString(argv[2]), ZString(argv[3]), ZString(argv[5]), ZString(load ? "-" : argv[4]));
        if (!done && !load) return 1;
        report(start);
        return 0;
    }
    fprintf(stderr, "usage: bench_dominators gen <nodes> <seed> <file> | dc <in> <out> <snca|low_mem|load> <folder>\n");
    return 2;
}
