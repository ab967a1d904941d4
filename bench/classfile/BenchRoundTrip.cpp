// Round trip of every class of a list, all held in memory: parse (which
// expands the stack maps), encode the frames again and write. Prints the
// median of repeated passes, and the heap allocations of one pass.
// Classes with a pool tag the toolkit leaves alone are left out, and the
// list of the classes measured is written for the comparison run.
// Usage: bench_classfile <list of class files> <passes> <measured list out>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include "classfile/ClassFile.h"
#include "classfile/OpCodes.h"

static std::atomic<long> ourAllocations{0};

void* operator new(size_t size) {
    ourAllocations.fetch_add(1, std::memory_order_relaxed);
    void* p = malloc(size == 0 ? 1 : size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void* operator new[](size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }

static long roundTrip(std::vector<ZVector<unsigned char, 10>*>& classes, long* instructions) {
    long written = 0;
    // One buffer for all classes, as the class load hook keeps it.
    static ZVector<unsigned char, 10> buffer;
    for (ZVector<unsigned char, 10>* bytes : classes) {
        DataInput in(*bytes);
        ClassFile cf(in);
        if (instructions != nullptr) {
            for (MethodInfo* m : cf.getMethods()) {
                CodeAttribute* code = m->getCodeAttribute();
                if (code == nullptr) continue;
                for (int pc = 0; pc < code->getCodeLength(); (*instructions)++) {
                    pc += OpCodes::instructionLength(code->getCode(), code->getCodeLength(), pc);
                }
            }
        }
        DataOutput dout = DataOutput::reusing(buffer);
        cf.writeClass(dout);
        written += dout.getSize();
    }
    return written;
}

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: bench_classfile <list> <passes> <measured list out>\n");
        return 2;
    }
    int passes = atoi(argv[2]);
    std::vector<ZVector<unsigned char, 10>*> classes;
    long long totalBytes = 0;
    std::ifstream list(argv[1]);
    std::ofstream measured(argv[3]);
    for (std::string path; std::getline(list, path);) {
        std::ifstream file(path, std::ios::binary);
        std::vector<char> data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        ZVector<unsigned char, 10>* bytes = new ZVector<unsigned char, 10>((int)data.size() + 1);
        bytes->resize((int)data.size());
        memcpy(bytes->getElements(), data.data(), data.size());
        DataInput in(*bytes);
        if (ClassFile(in).isInvalid()) {
            delete bytes;
            continue;
        }
        measured << path << "\n";
        classes.push_back(bytes);
        totalBytes += (long long)data.size();
    }

    long instructions = 0;
    long before = ourAllocations.load();
    long written = roundTrip(classes, &instructions);  // warm-up, and the allocation count of a pass
    long allocations = ourAllocations.load() - before;

    std::vector<double> seconds;
    for (int i = 0; i < passes; i++) {
        auto start = std::chrono::steady_clock::now();
        roundTrip(classes, nullptr);
        seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(seconds.begin(), seconds.end());
    double median = seconds[seconds.size() / 2];
    printf("classes %zu\n", classes.size());
    printf("bytes %lld\n", totalBytes);
    printf("written %ld\n", written);
    printf("instructions %ld\n", instructions);
    printf("allocations %ld\n", allocations);
    printf("classes_per_second %.0f\n", classes.size() / median);
    printf("mb_per_second %.1f\n", totalBytes / median / 1e6);
    return 0;
}
