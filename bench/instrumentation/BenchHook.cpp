// The whole class load hook (parse, patch for tracing, write) over every class
// of a list held in memory, with all methods instrumented. Each pass starts
// with a fresh database, as a JVM would, outside the timed part. Prints the
// median of the passes and writes the list of classes measured.
// With "digest", prints instead digests of the rewritten bytes and of the
// string and method tables after each pass, to show that a change of the
// hook's speed changes nothing it produces.
// Usage: bench_instrumentation <list of class files> <passes> <measured list out>
//        [digest <tracing|alloc|both> [options]]
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

static long hookAll(const std::vector<Class>& classes, long* rewritten, Digest* digest) {
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
    bool digestMode = argc >= 6 && std::string(argv[4]) == "digest";
    std::string kind = digestMode ? argv[5] : "tracing";
    const char* options = argc >= 7 ? argv[6] : "_instrument_all_methods";
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
    for (int i = 0; i <= passes; i++) {
        DB::resetForTests();
        DB::createAndInitializeDB(DBSettings{100});
        long count = 0;
        auto start = std::chrono::steady_clock::now();
        hookAll(classes, &count, nullptr);
        double spent = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (i > 0) seconds.push_back(spent);  // the first pass warms up
        rewritten = count;
    }
    std::vector<double> inOrder = seconds;
    std::sort(seconds.begin(), seconds.end());
    double median = seconds[seconds.size() / 2];
    printf("classes %zu\n", classes.size());
    printf("rewritten %ld\n", rewritten);
    printf("classes_per_second %.0f\n", classes.size() / median);
    if (getenv("BENCH_VERBOSE") != nullptr) {
        for (double t : inOrder) printf("pass %.0f classes/s\n", classes.size() / t);
    }
    return 0;
}
