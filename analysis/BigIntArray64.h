// Int columns of the heap graph: BigIntArray64 allocates blocks of 0x100000
// ints as they are first written, so that a column costs nothing until then;
// BigIntArray64Presized is one block of known size, allocated at once, for
// columns that every object fills.
#pragma once

#include <cstdint>

#include "foundation/Failure.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class BigIntArray64 {
public:
    static constexpr int BLOCK_SHIFT = 20;
    static constexpr int BLOCK_SIZE = 1 << BLOCK_SHIFT;
    static constexpr int BLOCK_MASK = BLOCK_SIZE - 1;

    explicit BigIntArray64(const char* name, int defaultValue = 0);
    ~BigIntArray64() { release(); }
    BigIntArray64(const BigIntArray64&) = delete;
    BigIntArray64& operator=(const BigIntArray64&) = delete;

    // The block that holds `index`. A missing block is null without `create`
    // and is made, filled with the default value, with it.
    int* getBuffer(int64_t index, bool create) {
        if (index < 0) {
            if (create) failFatal("assertion failed", __FILE__, __LINE__);
            return nullptr;
        }
        int64_t block = index >> BLOCK_SHIFT;
        if (block < myBlocks.getSize()) {
            int* buffer = myBlocks.getElements()[block];
            if (buffer != nullptr || !create) return buffer;
        } else if (!create) {
            return nullptr;
        }
        return createBlock(index);
    }
    const int* getBlock(int64_t index) const {
        int64_t block = index >> BLOCK_SHIFT;
        return index >= 0 && block < myBlocks.getSize() ? myBlocks.getElements()[block] : nullptr;
    }
    int get(int64_t index) const {
        const int* block = getBlock(index);
        return block != nullptr ? block[index & BLOCK_MASK] : myDefault;
    }
    void set(int64_t index, int value) { getBuffer(index, true)[index & BLOCK_MASK] = value; }

    // A stack on top of the blocks, for walks that must not allocate per object.
    void push(int64_t& size, int value) { set(size++, value); }

    // Makes every block up to `index`, so that the block table can be used
    // directly (getBlockTable()[position >> BLOCK_SHIFT]).
    void createBlocksUpTo(int64_t index) {
        for (int64_t position = 0; position <= index; position += BLOCK_SIZE) getBuffer(position, true);
    }
    int* const* getBlockTable() const { return myBlocks.getElements(); }
    int getBlockCount() const { return myBlocks.getSize(); }

    int getDefault() const { return myDefault; }
    const char* getName() const { return myName.c_str(); }
    int64_t getAllocatedBytes() const;
    // Frees every block; reads see the default value again.
    void release();

private:
    int* createBlock(int64_t index);

    ZString myName;
    ZVector<int*> myBlocks;
    int myDefault;
};

class BigIntArray64Presized {
public:
    BigIntArray64Presized(const char* name, int64_t size);
    ~BigIntArray64Presized() { release(); }
    BigIntArray64Presized(const BigIntArray64Presized&) = delete;
    BigIntArray64Presized& operator=(const BigIntArray64Presized&) = delete;

    int64_t getSize() const { return mySize; }
    int* getData() { return myData; }
    const int* getData() const { return myData; }
    int get(int64_t index) const {
        if (index < 0 || index >= mySize) failFatal("assertion failed", __FILE__, __LINE__);
        return myData[index];
    }
    void set(int64_t index, int value) {
        if (index < 0 || index >= mySize) failFatal("assertion failed", __FILE__, __LINE__);
        myData[index] = value;
    }
    void release();

private:
    int64_t mySize;
    int* myData;
};
