// Frame lookup and creation on a synthetic deep call tree, and string
// interning, each measured over millions of operations; medians of several
// runs. The frame and string baselines are hash maps of the standard library
// over the same keys.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "db/DB.h"
#include "db/StringPool.h"
#include "db/ZFrameStorage.h"
#include "db/CodePointStorage.h"
#include "db/ZMethod.h"

namespace {

struct Random {
    uint64_t state = 0x9E3779B97F4A7C15ULL;
    uint32_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return (uint32_t)state;
    }
    int below(int n) { return (int)(next() % (uint32_t)n); }
};

double seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void freshDatabase() {
    DB::resetForTests();
    DB::createAndInitializeDB(DBSettings{10});
}

// One step of a walk down the tree: the code point of a call and, once
// made, the frame it leads to.
struct Step {
    int parent;
    int codePoint;
    int frame;
};

// A call tree like a program's: most frames have one to three callees, some
// dispatchers have hundreds; paths run up to 300 frames deep; lines split
// some calls. Returns every (parent, code point) the walks took.
std::vector<Step> buildTree(const LockHolder& lock, int paths, std::vector<size_t>* pathStarts) {
    std::vector<int> methods;
    for (int i = 0; i < 4000; i++) {
        std::string className = "com.acme.app.Service" + std::to_string(i / 40);
        std::string name = "method" + std::to_string(i);
        methods.push_back(ZMethod::getByName(lock, className.c_str(), name.c_str(), "()", "void", "S.java", false));
    }
    Random random;
    std::vector<Step> steps;
    for (int p = 0; p < paths; p++) {
        int depth = 20 + random.below(280);
        int frame = 0;
        int caller = 0;
        pathStarts->push_back(steps.size());
        for (int d = 0; d < depth; d++) {
            // Mostly the usual callee, sometimes one of a few others, rarely
            // one of hundreds behind a dispatcher.
            int r = random.below(1000);
            int choice = r < 900 ? 0 : r < 990 ? 1 + random.below(3) : 4 + random.below(400);
            int slot = (int)((uint32_t)(caller * 7919 + choice * 104729 + d) % methods.size());
            int line = (choice % 4) * 17 + 1;
            int codePoint = CodePointStorage::getCodePoint(lock, methods[slot], line);
            int child = ZFrameStorage::getChild(lock, frame, codePoint);
            steps.push_back({frame, codePoint, child});
            frame = child;
            caller = slot;
        }
    }
    return steps;
}

struct Result {
    double ours;
    double baseline;
};

Result benchFrameLookup(int runs) {
    freshDatabase();
    LockHolder lock(&ourLock, LOCK_SITE);
    std::vector<size_t> pathStarts;
    std::vector<Step> steps = buildTree(lock, 20000, &pathStarts);
    pathStarts.push_back(steps.size());
    std::unordered_map<uint64_t, int> index;
    for (const Step& s : steps) index.emplace(((uint64_t)(uint32_t)s.parent << 32) | (uint32_t)s.codePoint, s.frame);
    // The order of a player: whole paths, taken in random order, over and over.
    const long minimumOperations = 5000000;
    Random random;
    std::vector<int> order;
    long operations = 0;
    while (operations < minimumOperations) {
        int path = random.below((int)pathStarts.size() - 1);
        order.push_back(path);
        operations += (long)(pathStarts[path + 1] - pathStarts[path]);
    }
    std::vector<double> ours;
    std::vector<double> baseline;
    long check = 0;
    for (int run = 0; run < runs; run++) {
        double start = seconds();
        for (int path : order) {
            for (size_t at = pathStarts[path]; at < pathStarts[path + 1]; at++) {
                check += ZFrameStorage::getChild(lock, steps[at].parent, steps[at].codePoint);
            }
        }
        ours.push_back(operations / (seconds() - start));
        start = seconds();
        for (int path : order) {
            for (size_t at = pathStarts[path]; at < pathStarts[path + 1]; at++) {
                const Step& s = steps[at];
                check += index.find(((uint64_t)(uint32_t)s.parent << 32) | (uint32_t)s.codePoint)->second;
            }
        }
        baseline.push_back(operations / (seconds() - start));
    }
    if (check == 42) printf("#\n");
    fprintf(stderr, "frames in the tree: %d\n", ourFrameTable->peekNextIndex() - 1);
    return {median(ours), median(baseline)};
}

// A dispatcher with a thousand callees, looked up in random order: the
// child list is walked, so this is the tree's worst ordinary case.
Result benchFrameLookupWide(int runs) {
    freshDatabase();
    LockHolder lock(&ourLock, LOCK_SITE);
    const int children = 1000;
    int parent = ZFrameStorage::getChild(lock, 0, 1, 0);
    std::unordered_map<uint64_t, int> index;
    for (int i = 0; i < children; i++) {
        index.emplace(((uint64_t)(uint32_t)parent << 32) | (uint32_t)(2 + i), ZFrameStorage::getChild(lock, parent, 2 + i));
    }
    Random random;
    std::vector<int> order;
    for (int i = 0; i < 1000000; i++) order.push_back(2 + random.below(children));
    std::vector<double> ours;
    std::vector<double> baseline;
    long check = 0;
    for (int run = 0; run < runs; run++) {
        double start = seconds();
        for (int codePoint : order) check += ZFrameStorage::getChild(lock, parent, codePoint);
        ours.push_back(order.size() / (seconds() - start));
        start = seconds();
        for (int codePoint : order) check += index.find(((uint64_t)(uint32_t)parent << 32) | (uint32_t)codePoint)->second;
        baseline.push_back(order.size() / (seconds() - start));
    }
    if (check == 42) printf("#\n");
    return {median(ours), median(baseline)};
}

Result benchFrameCreation(int runs) {
    const int frames = 2000000;
    std::vector<double> ours;
    std::vector<double> baseline;
    for (int run = 0; run < runs; run++) {
        freshDatabase();
        LockHolder lock(&ourLock, LOCK_SITE);
        // New callees under frames of a growing tree: each call a new frame.
        Random random;
        std::vector<int> parents = {0};
        parents.reserve(frames + 1);
        double start = seconds();
        for (int i = 0; i < frames; i++) {
            int parent = parents[parents.size() - 1 - random.below(std::min<int>(parents.size(), 64))];
            parents.push_back(ZFrameStorage::getChild(lock, parent, 1 + i));
        }
        ours.push_back(frames / (seconds() - start));

        std::unordered_map<uint64_t, int> index;
        std::vector<int> hashParents = {0};
        hashParents.reserve(frames + 1);
        Random again;
        start = seconds();
        for (int i = 0; i < frames; i++) {
            int parent = hashParents[hashParents.size() - 1 - again.below(std::min<int>(hashParents.size(), 64))];
            int frame = (int)index.size() + 1;
            index.emplace(((uint64_t)(uint32_t)parent << 32) | (uint32_t)(1 + i), frame);
            hashParents.push_back(frame);
        }
        baseline.push_back(frames / (seconds() - start));
    }
    return {median(ours), median(baseline)};
}

std::vector<std::string> classNames(int count, const char* tag) {
    std::vector<std::string> names;
    for (int i = 0; i < count; i++) {
        names.push_back(std::string("com.acme.") + tag + ".module" + std::to_string(i % 97) + ".SomeService" +
                        std::to_string(i) + "$Inner");
    }
    return names;
}

Result benchInternKnown(int runs) {
    freshDatabase();
    LockHolder lock(&ourLock, LOCK_SITE);
    std::vector<std::string> names = classNames(200000, "known");
    std::unordered_map<std::string_view, int> baselineMap;
    for (const std::string& name : names) {
        int id = StringPool::getStrIDImpl(lock, name.c_str(), false);
        baselineMap.emplace(std::string_view(name), id);
    }
    Random random;
    std::vector<const char*> order;
    for (int i = 0; i < 4000000; i++) order.push_back(names[random.below((int)names.size())].c_str());
    std::vector<double> ours;
    std::vector<double> baseline;
    long check = 0;
    for (int run = 0; run < runs; run++) {
        double start = seconds();
        for (const char* text : order) check += StringPool::getStrIDImpl(lock, text, false);
        ours.push_back(order.size() / (seconds() - start));
        start = seconds();
        for (const char* text : order) check += baselineMap.find(std::string_view(text))->second;
        baseline.push_back(order.size() / (seconds() - start));
    }
    if (check == 42) printf("#\n");
    return {median(ours), median(baseline)};
}

Result benchInternNew(int runs) {
    std::vector<std::string> names = classNames(1000000, "fresh");
    std::vector<double> ours;
    std::vector<double> baseline;
    for (int run = 0; run < runs; run++) {
        freshDatabase();
        LockHolder lock(&ourLock, LOCK_SITE);
        double start = seconds();
        for (const std::string& name : names) StringPool::getStrIDImpl(lock, name.c_str(), false);
        ours.push_back(names.size() / (seconds() - start));
        // The same work with owned copies, as the pool keeps them.
        std::unordered_map<std::string, int> map;
        start = seconds();
        int next = 1;
        for (const std::string& name : names) map.emplace(name.c_str(), next++);
        baseline.push_back(names.size() / (seconds() - start));
    }
    return {median(ours), median(baseline)};
}

void print(const char* name, const char* baselineName, Result result) {
    printf("BENCH %s %.0f ops/s vs %s %.0f ops/s ratio %.2f\n", name, result.ours, baselineName, result.baseline,
           result.ours / result.baseline);
    fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    int runs = argc > 1 ? atoi(argv[1]) : 5;
    if (runs < 1) runs = 1;
    Logger::ourQuiet = true;
    print("db_frame_lookup", "std_unordered_map", benchFrameLookup(runs));
    print("db_frame_lookup_wide", "std_unordered_map", benchFrameLookupWide(runs));
    print("db_frame_create", "std_unordered_map", benchFrameCreation(runs));
    print("db_string_intern_known", "std_unordered_map", benchInternKnown(runs));
    print("db_string_intern_new", "std_unordered_map", benchInternNew(runs));
    DB::resetForTests();
    return 0;
}
