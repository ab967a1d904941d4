// A column of small values with a map for the rare large ones: one element of
// type S per object, in blocks allocated at their first non-default write.
// An element keeps the value minus D, so that a fresh (zero) element reads
// as D; the largest value of S marks "look in the map", where values that
// do not fit are kept whole.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>

#include "foundation/Failure.h"
#include "foundation/ZMap.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

template <typename S, typename V, int D, int Unused>
class BigArrayWithMapFallback {
public:
    static constexpr int BLOCK_SHIFT = 20;
    static constexpr int BLOCK_SIZE = 1 << BLOCK_SHIFT;
    static constexpr int64_t MARK = std::numeric_limits<S>::max();

    explicit BigArrayWithMapFallback(const char* name) : myName(name), myMap(17) {}
    ~BigArrayWithMapFallback() {
        for (int i = 0; i < myBlocks.getSize(); i++) free(myBlocks[i]);
    }
    BigArrayWithMapFallback(const BigArrayWithMapFallback&) = delete;
    BigArrayWithMapFallback& operator=(const BigArrayWithMapFallback&) = delete;

    V get(int index) const {
        if (index < 0) return (V)D;
        int block = index >> BLOCK_SHIFT;
        if (block >= myBlocks.getSize() || myBlocks.getElements()[block] == nullptr) return (V)D;
        S stored = myBlocks.getElements()[block][index & (BLOCK_SIZE - 1)];
        if (stored != MARK) return (V)((int64_t)stored + D);
        return myMap.get(index, (V)0);
    }

    void set(int index, V value) {
        if (index < 0) failFatal("assertion failed", __FILE__, __LINE__);
        int64_t shifted = (int64_t)value - D;
        int block = index >> BLOCK_SHIFT;
        bool present = block < myBlocks.getSize() && myBlocks.getElements()[block] != nullptr;
        if (!present && shifted == 0) return;
        S* elements = present ? myBlocks.getElements()[block] : createBlock(block);
        S& element = elements[index & (BLOCK_SIZE - 1)];
        if (shifted >= 0 && shifted < MARK) {
            if (element == MARK) myMap.remove(index);
            element = (S)shifted;
        } else {
            element = (S)MARK;
            myMap.put(index, value);
        }
    }

    // The element count and the map size, for the storage statistics.
    ZString getStatistics() const {
        ZString text("elements=");
        text.appendLong((int64_t)myBlocks.getSize() * BLOCK_SIZE).append(" map=").appendLong(myMap.getSize());
        return text;
    }
    int getMapSize() const { return myMap.getSize(); }
    const char* getName() const { return myName.c_str(); }

private:
    S* createBlock(int block) {
        if (block >= myBlocks.getSize()) myBlocks.resize(block + 1, nullptr);
        S* elements = (S*)calloc(BLOCK_SIZE, sizeof(S));
        if (elements == nullptr) throw std::bad_alloc();
        myBlocks[block] = elements;
        return elements;
    }

    ZString myName;
    ZVector<S*> myBlocks;
    ZMap<int, V> myMap;
};
