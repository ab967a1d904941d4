// The whole class load hook (parse, patch for tracing, write) over every class
// of a list held in memory, with all methods instrumented. Each pass starts
// with a fresh database, as a JVM would, outside the timed part. Prints the
// median of the passes and writes the list of classes measured.
// Usage: bench_instrumentation <list of class files> <passes> <measured list out>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include "agent/AgentState.h"
#include "agent/Logger.h"
#include "agent/Options.h"
#include "classfile/ClassFile.h"
#include "db/DB.h"
#include "instrumentation/Instrumentation.h"

struct Class {
    std::string name;
    std::vector<unsigned char> bytes;
};

static long hookAll(const std::vector<Class>& classes, long* rewritten) {
    long written = 0;
    LockHolder lock(&ourLock, LOCK_SITE);
    for (const Class& c : classes) {
        int length = 0;
        unsigned char* bytes = nullptr;
        classFileLoadHookHandlerImpl(lock, ZString(c.name.c_str()), (int)c.bytes.size(), c.bytes.data(), &length, &bytes,
                                     false, false);
        if (bytes != nullptr) (*rewritten)++;
        written += length;
        free(bytes);
    }
    return written;
}

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: bench_instrumentation <list> <passes> <measured list out>\n");
        return 2;
    }
    Logger::ourQuietErrorMode = true;
    Logger::ourQuiet = true;
    uint64_t capabilities = 0;
    bool showUsage = false;
    ourOptions.parseOptions(ZString("_instrument_all_methods"), &capabilities, &showUsage, true);
    ourCapabilities = CAP_TRACING;
    int passes = atoi(argv[2]);
    std::vector<Class> classes;
    std::ifstream list(argv[1]);
    std::ofstream measured(argv[3]);
    for (std::string path; std::getline(list, path);) {
        std::ifstream file(path, std::ios::binary);
        Class c;
        c.bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        ZVector<unsigned char, 10> copy;
        copy.resize((int)c.bytes.size());
        memcpy(copy.getElements(), c.bytes.data(), c.bytes.size());
        DataInput in(copy);
        ClassFile cf(in);
        if (cf.isInvalid()) continue;
        c.name = cf.getSignature().c_str();
        // The agent's rules skip a few (Unsafe, old interfaces); both sides take the same set.
        if (c.name == "sun/misc/Unsafe" || c.name == "jdk/internal/misc/Unsafe" || c.name == "module-info") continue;
        measured << path << "\n";
        classes.push_back(std::move(c));
    }

    std::vector<double> seconds;
    long rewritten = 0;
    for (int i = 0; i <= passes; i++) {
        DB::resetForTests();
        DB::createAndInitializeDB(100);
        long count = 0;
        auto start = std::chrono::steady_clock::now();
        hookAll(classes, &count);
        double spent = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (i > 0) seconds.push_back(spent);  // the first pass warms up
        rewritten = count;
    }
    std::sort(seconds.begin(), seconds.end());
    double median = seconds[seconds.size() / 2];
    printf("classes %zu\n", classes.size());
    printf("rewritten %ld\n", rewritten);
    printf("classes_per_second %.0f\n", classes.size() / median);
    return 0;
}
