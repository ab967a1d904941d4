#include "analysis/BigIntArray64.h"

#include <cstdlib>
#include <new>

#include "services/Logger.h"

BigIntArray64::BigIntArray64(const char* name, int defaultValue) : myName(name), myDefault(defaultValue) {}

int* BigIntArray64::createBlock(int64_t index) {
    if (index < 0) failFatal("assertion failed", __FILE__, __LINE__);
    int64_t block = index >> BLOCK_SHIFT;
    if (block >= 0x7fffffff) failFatal("assertion failed", __FILE__, __LINE__);
    if (block >= myBlocks.getSize()) myBlocks.resize((int)block + 1, nullptr);
    int* buffer = myDefault == 0 ? (int*)calloc(BLOCK_SIZE, sizeof(int)) : (int*)malloc(BLOCK_SIZE * sizeof(int));
    if (buffer == nullptr) throw std::bad_alloc();
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
    for (int i = 0; i < myBlocks.getSize(); i++) free(myBlocks[i]);
    myBlocks.clear();
}

BigIntArray64Presized::BigIntArray64Presized(const char* name, int64_t size) : mySize(size), myData(nullptr) {
    if (size < 0) failFatal("assertion failed", __FILE__, __LINE__);
    ZString text("BIA_P=");
    text.append(name).append(" size=").appendLong(size).append(" (").appendLong(size >> 18).append(" MB)");
    Logger::messageWithStats(text);
    myData = (int*)calloc(size > 0 ? size : 1, sizeof(int));
    if (myData == nullptr) throw std::bad_alloc();
    Logger::messageWithStats(ZString("BIA_P=") + name);
}

void BigIntArray64Presized::release() {
    free(myData);
    myData = nullptr;
    mySize = 0;
}
