#include "analysis/RefTable.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "services/Logger.h"

// Stands for the blocks that were never written: their references read as 0.
static int ourZeroBlock[BigIntArray64::BLOCK_SIZE];

void ReferenceIterator::refill() {
    // A negative position stands for an extra entry that was never written.
    const int* block = myPosition >= 0 ? myTable->myRefs.getBlock(myPosition) : nullptr;
    int offset = myPosition >= 0 ? (int)(myPosition & BigIntArray64::BLOCK_MASK) : 0;
    int64_t available = BigIntArray64::BLOCK_SIZE - offset;
    if (available > myRemaining) available = myRemaining;
    myCursor = (block != nullptr ? block : ourZeroBlock) + offset;
    myEnd = myCursor + available;
    if (myPosition >= 0) myPosition += available;
}

RefTable::RefTable(const char* name, int size, int64_t mainAreaLimit)
    : mySize(size),
      myStartAndCount((ZString(name) + "-sc").c_str(), 2 * (int64_t)size),
      myRefs((ZString(name) + "-r").c_str()),
      myNextFree(0),
      myMainAreaLimit(mainAreaLimit) {
    myExtraRefs.push(nullptr);
}

RefTable::~RefTable() {
    release();
}

void RefTable::release() {
    for (int i = 1; i < myExtraRefs.getSize(); i++) free(myExtraRefs[i]);
    myExtraRefs.clear();
    myExtraRefs.push(nullptr);
    myRefs.release();
    myStartAndCount.release();
    myNextFree = 0;
}

int64_t RefTable::getAllocatedBytes() const {
    int64_t bytes = myStartAndCount.getSize() * (int64_t)sizeof(int) + myRefs.getAllocatedBytes();
    const int* sc = myStartAndCount.getData();
    for (int object = 0; object < mySize && myExtraRefs.getSize() > 1; object++) {
        int start = sc[2 * (int64_t)object];
        if (start < 0 && myExtraRefs[-start] != nullptr) bytes += (int64_t)sc[2 * (int64_t)object + 1] * sizeof(int);
    }
    return bytes;
}

int RefTable::takeExtraEntry() {
    int entry = myExtraRefs.push(nullptr);
    if (myExtraRefs.getSize() == 2) Logger::message("with extraRefs");
    return entry;
}

void RefTable::createRefs(int object, int count) {
    checkObject(object);
    if (count < 0) failFatal("assertion failed", __FILE__, __LINE__);
    int* sc = myStartAndCount.getData() + 2 * (int64_t)object;
    if (myNextFree + count < myMainAreaLimit) {
        sc[0] = (int)myNextFree;
        myNextFree += count;
    } else {
        sc[0] = -takeExtraEntry();
    }
    sc[1] = count;
}

int RefTable::getRef(int object, int i) const {
    checkObject(object);
    const int* sc = myStartAndCount.getData() + 2 * (int64_t)object;
    if (i < 0 || i >= sc[1]) failFatal("assertion failed", __FILE__, __LINE__);
    if (sc[0] >= 0) return myRefs.get((int64_t)sc[0] + i);
    const int* extra = myExtraRefs[-sc[0]];
    return extra != nullptr ? extra[i] : 0;
}

void RefTable::setRef(int object, int i, int target) {
    checkObject(object);
    const int* sc = myStartAndCount.getData() + 2 * (int64_t)object;
    if (i < 0 || i >= sc[1]) failFatal("assertion failed", __FILE__, __LINE__);
    if (sc[0] >= 0) {
        myRefs.set((int64_t)sc[0] + i, target);
        return;
    }
    int*& extra = myExtraRefs[-sc[0]];
    if (extra == nullptr) {
        extra = (int*)calloc(sc[1], sizeof(int));
        if (extra == nullptr) throw std::bad_alloc();
    }
    extra[i] = target;
}

void RefTable::setNewRefCount(int object, int count) {
    checkObject(object);
    if (count < 0) failFatal("assertion failed", __FILE__, __LINE__);
    int* sc = myStartAndCount.getData() + 2 * (int64_t)object;
    if (sc[0] < 0) {
        int*& extra = myExtraRefs[-sc[0]];
        free(extra);
        extra = nullptr;
    } else {
        sc[0] = -takeExtraEntry();
    }
    sc[1] = count;
}

void RefTable::initReferenceIterator(ReferenceIterator& iterator, int object) const {
    checkObject(object);
    const int* sc = myStartAndCount.getData() + 2 * (int64_t)object;
    iterator.myTable = this;
    iterator.myRemaining = sc[1];
    if (sc[0] >= 0) {
        iterator.myPosition = sc[0];
        iterator.myCursor = iterator.myEnd = nullptr;
        return;
    }
    const int* extra = myExtraRefs[-sc[0]];
    iterator.myPosition = -1;
    iterator.myCursor = extra;
    iterator.myEnd = extra != nullptr ? extra + sc[1] : nullptr;
}

const int* RefTable::getRefsChunk(int object, int from, int& available) const {
    const int* sc = myStartAndCount.getData() + 2 * (int64_t)object;
    int rest = sc[1] - from;
    if (sc[0] < 0) {
        const int* extra = myExtraRefs.getElements()[-sc[0]];
        if (extra != nullptr) {
            available = rest;
            return extra + from;
        }
        available = rest < BigIntArray64::BLOCK_SIZE ? rest : BigIntArray64::BLOCK_SIZE;
        return ourZeroBlock;
    }
    int64_t position = (int64_t)sc[0] + from;
    int offset = (int)(position & BigIntArray64::BLOCK_MASK);
    int inBlock = BigIntArray64::BLOCK_SIZE - offset;
    available = rest < inBlock ? rest : inBlock;
    const int* block = myRefs.getBlock(position);
    return (block != nullptr ? block : ourZeroBlock) + offset;
}
