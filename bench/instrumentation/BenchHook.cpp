// The whole class load hook (parse, patch, write) over every class of a list
// held in memory, with all methods instrumented and line calls in methods of
// every length. Each pass starts with a fresh database, as a JVM would,
// outside the timed part. Prints the median of the passes, the classes
// rewritten and the bytes they came to, and writes the list of classes
// measured. <kind> is what is patched: tracing (entry, exits, lines), alloc
// (allocation points) or both.
// With "digest", prints instead digests of the rewritten bytes and of the
// string and method tables after each pass, to show that a change of the
// hook's speed changes nothing it produces. With "write", writes each class
// as the hook left it into a folder, for a run of the rewritten program.
// Usage: bench_instrumentation <list of class files> <passes> <measured list out>
//        [time <kind> | digest <kind> [options] | write <kind> <folder>]
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "classfile/ClassFile.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "instrumentation/Instrumentation.h"
#include "instrumentation/InstrumentationJoints.h"

struct Class {
    std::string name;
    std::vector<unsigned char> bytes;
};

// FNV-1a, 64 bits.
struct Digest {
    uint64_t value = 1469598103934665603ull;
    void add(const void* data, size_t length) {
        for (size_t i = 0; i < length; i++) {
            value ^= ((const unsigned char*)data)[i];
            value *= 1099511628211ull;
        }
    }
    void addInt(int64_t v) { add(&v, sizeof(v)); }
    void addText(const char* text) {
        if (text == nullptr) addInt(-1);
        else add(text, strlen(text) + 1);
    }
};

// Bytes written by the hook; with a folder, every class goes there as the
// hook left it.
static long hookAll(const std::vector<Class>& classes, long* rewritten, Digest* digest, const char* folder = nullptr) {
    long written = 0;
    LockHolder lock(&ourLock, LOCK_SITE);
    for (const Class& c : classes) {
        int length = 0;
        unsigned char* bytes = nullptr;
        classFileLoadHookHandlerImpl(lock, ZString(c.name.c_str()), (int)c.bytes.size(), c.bytes.data(), &length, &bytes,
                                     false, false);
        if (bytes != nullptr) (*rewritten)++;
        written += length;
        if (digest != nullptr) {
            digest->addInt(bytes != nullptr ? length : -1);
            if (bytes != nullptr) digest->add(bytes, length);
        }
        if (folder != nullptr) {
            std::string path = std::string(folder) + "/" + c.name + ".class";
            std::filesystem::create_directories(std::filesystem::path(path).parent_path());
            std::ofstream out(path, std::ios::binary);
            if (bytes != nullptr) out.write((const char*)bytes, length);
            else out.write((const char*)c.bytes.data(), (std::streamsize)c.bytes.size());
        }
        free(bytes);
    }
    return written;
}

// The string and method tables as the hook left them; the strings that the
// database made for itself (a start time among them) come first and are left out.
static void digestTables(int firstString, Digest* strings, Digest* methods) {
    LockHolder lock(&ourLock, LOCK_SITE);
    StringTable* stringTable = ourDB->getStringTable();
    for (int i = firstString; i < stringTable->getCapacity(); i++) {
        StringRecord* record = stringTable->getPtr(i, false);
        if (record == nullptr || record->myStamp == 0) continue;
        strings->addInt(i);
        strings->addInt(record->myStamp);
        strings->addText(record->myText);
    }
    for (int i = 0; i < ourMethodTable->getCapacity(); i++) {
        MethodRecord* record = ourMethodTable->getPtr(i, false);
        if (record == nullptr || record->myStamp == 0) continue;
        int32_t fields[] = {i, record->myStamp, record->myName, record->myParameters, record->myClass,
                            record->myReturnType, record->mySourceFile, record->myFlags};
        methods->add(fields, sizeof(fields));
    }
}

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: bench_instrumentation <list> <passes> <measured list out>\n");
        return 2;
    }
    Logger::ourQuietErrorMode = true;
    Logger::ourQuiet = true;
    std::string mode = argc >= 5 ? argv[4] : "time";
    bool digestMode = mode == "digest";
    std::string kind = argc >= 6 ? argv[5] : "tracing";
    const char* options = digestMode && argc >= 7 ? argv[6] : "_instrument_all_methods,_tracing_clt=65536";
    uint64_t capabilities = 0;
    bool showUsage = false;
    ourOptions.parseOptions(ZString(options), &capabilities, &showUsage, true);
    ourCapabilities.set(kind == "alloc" ? CAPABILITY_ALLOC_BCI : kind == "both" ? CAPABILITY_TRACING | CAPABILITY_ALLOC_BCI : CAPABILITY_TRACING);
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

    if (mode == "write") {
        if (argc < 7) {
            fprintf(stderr, "usage: bench_instrumentation <list> <passes> <measured list out> write <kind> <folder>\n");
            return 2;
        }
        DB::createAndInitializeDB(DBSettings{100});
        long count = 0;
        hookAll(classes, &count, nullptr, argv[6]);
        printf("rewritten %ld\n", count);
        return 0;
    }

    if (digestMode) {
        // Counter addresses that do not depend on where the program was loaded.
        ourCountingJoint.getCallCounterAddress = [](const LockHolder&, int method) -> int64_t {
            return 0x10000000ll + method * 8ll;
        };
        ourCountingJoint.getAllocCounterAddress = [](const LockHolder&, int codePoint, int classString) -> int64_t {
            return 0x20000000ll + (int64_t)(uint32_t)codePoint * 64ll + classString;
        };
        for (int i = 0; i < passes; i++) {
            DB::resetForTests();
            DB::createAndInitializeDB(DBSettings{100});
            int firstString = StringPool::getStringCount() + 1;
            long count = 0;
            Digest bytes, strings, methods;
            hookAll(classes, &count, &bytes);
            digestTables(firstString, &strings, &methods);
            printf("pass %d: rewritten %ld bytes %016llx strings %016llx methods %016llx\n", i, count,
                   (unsigned long long)bytes.value, (unsigned long long)strings.value,
                   (unsigned long long)methods.value);
        }
        return 0;
    }

    std::vector<double> seconds;
    long rewritten = 0;
    long written = 0;
    for (int i = 0; i <= passes; i++) {
        DB::resetForTests();
        DB::createAndInitializeDB(DBSettings{100});
        long count = 0;
        auto start = std::chrono::steady_clock::now();
        written = hookAll(classes, &count, nullptr);
        double spent = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (i > 0) seconds.push_back(spent);  // the first pass warms up
        rewritten = count;
    }
    std::vector<double> inOrder = seconds;
    std::sort(seconds.begin(), seconds.end());
    double median = seconds[seconds.size() / 2];
    printf("classes %zu\n", classes.size());
    printf("rewritten %ld\n", rewritten);
    printf("written %ld\n", written);
    printf("classes_per_second %.0f\n", classes.size() / median);
    if (getenv("BENCH_VERBOSE") != nullptr) {
        for (double t : inOrder) printf("pass %.0f classes/s\n", classes.size() / t);
    }
    return 0;
}
