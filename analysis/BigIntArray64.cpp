#include "analysis/BigIntArray64.h"

#include <sys/mman.h>

#include <cstdlib>
#include <new>

#include "services/Logger.h"

// Zeroed ints straight from the system, on huge pages where it offers them:
// the graph walks jump around arrays of hundreds of megabytes.
static int* mapInts(int64_t count) {
    size_t bytes = (size_t)(count > 0 ? count : 1) * sizeof(int);
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    if (bytes >= (2u << 20)) madvise(memory, bytes, MADV_HUGEPAGE);
    return (int*)memory;
}

static void unmapInts(int* ints, int64_t count) {
    if (ints != nullptr) munmap(ints, (size_t)(count > 0 ? count : 1) * sizeof(int));
}

BigIntArray64::BigIntArray64(const char* name, int defaultValue) : myName(name), myDefault(defaultValue) {}

int* BigIntArray64::createBlock(int64_t index) {
    if (index < 0) failFatal("assertion failed", __FILE__, __LINE__);
    int64_t block = index >> BLOCK_SHIFT;
    if (block >= 0x7fffffff) failFatal("assertion failed", __FILE__, __LINE__);
    if (block >= myBlocks.getSize()) myBlocks.resize((int)block + 1, nullptr);
    int* buffer = mapInts(BLOCK_SIZE);
    if (myDefault != 0) {
        for (int i = 0; i < BLOCK_SIZE; i++) buffer[i] = myDefault;
    }
    myBlocks[(int)block] = buffer;
    return buffer;
}

int64_t BigIntArray64::getAllocatedBytes() const {
    int64_t bytes = 0;
    for (int i = 0; i < myBlocks.getSize(); i++) {
        if (myBlocks[i] != nullptr) bytes += (int64_t)BLOCK_SIZE * sizeof(int);
    }
    return bytes;
}

void BigIntArray64::release() {
    for (int i = 0; i < myBlocks.getSize(); i++) unmapInts(myBlocks[i], BLOCK_SIZE);
    myBlocks.clear();
}

BigIntArray64Presized::BigIntArray64Presized(const char* name, int64_t size) : mySize(size), myData(nullptr) {
    if (size < 0) failFatal("assertion failed", __FILE__, __LINE__);
    ZString text("BIA_P=");
    text.append(name).append(" size=").appendLong(size).append(" (").appendLong(size >> 18).append(" MB)");
    Logger::messageWithStats(text);
    myData = mapInts(size);
    Logger::messageWithStats(ZString("BIA_P=") + name);
}

void BigIntArray64Presized::release() {
    unmapInts(myData, mySize);
    myData = nullptr;
    mySize = 0;
}
