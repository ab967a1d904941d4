// The outgoing references of every object of a heap graph. Start and count
// of each object's references sit in one presized column; the references
// themselves lie object after object in a main area of lazily allocated
// blocks, or, for objects that come after the main area is full or that
// change their count, in separate arrays ("extra" entries, named by a
// negative start). A reference of 0 is a null reference.
#pragma once

#include <cstdint>

#include "analysis/BigIntArray64.h"
#include "foundation/ZVector.h"

class RefTable;

// Walks the references of one object; a block of the main area is looked up
// once for all the references it holds.
class ReferenceIterator {
public:
    ReferenceIterator() : myCursor(nullptr), myEnd(nullptr), myRemaining(0), myPosition(0), myTable(nullptr) {}
    bool hasNext() const { return myRemaining > 0; }
    int next() {
        if (myCursor == myEnd) refill();
        myRemaining--;
        return *myCursor++;
    }
    int getRemaining() const { return myRemaining; }

private:
    friend class RefTable;
    void refill();

    const int* myCursor;
    const int* myEnd;
    int myRemaining;
    int64_t myPosition;  // main-area position of myEnd
    const RefTable* myTable;
};

class RefTable {
public:
    // Positions of the main area: its next free position stays below this.
    static constexpr int64_t MAIN_AREA_LIMIT = 2147483648LL;

    RefTable(const char* name, int size, int64_t mainAreaLimit = MAIN_AREA_LIMIT);
    ~RefTable();
    RefTable(const RefTable&) = delete;
    RefTable& operator=(const RefTable&) = delete;

    int getSize() const { return mySize; }
    void createRefs(int object, int count);
    int getRefCount(int object) const {
        checkObject(object);
        return myStartAndCount.getData()[2 * (int64_t)object + 1];
    }
    int getRef(int object, int i) const;
    void setRef(int object, int i, int target);
    void setNewRefCount(int object, int count);
    void initReferenceIterator(ReferenceIterator& iterator, int object) const;
    // The references of `object` from index `from` on that lie in one piece
    // of memory; `available` tells how many (at least one when `from` is
    // below the count). References never written read as 0.
    const int* getRefsChunk(int object, int from, int& available) const;

    // For the graph algorithms: start and count of every object, and the
    // main area.
    int* getStartAndCount() { return myStartAndCount.getData(); }
    BigIntArray64& getMainArea() { return myRefs; }
    int64_t getNextFree() const { return myNextFree; }
    int getExtraCount() const { return myExtraRefs.getSize() - 1; }
    // The array of an extra entry (minus a negative start), or null.
    int* getExtraArray(int entry) { return myExtraRefs[entry]; }
    int64_t getAllocatedBytes() const;
    // Frees all references and the start and count column.
    void release();

private:
    friend class ReferenceIterator;
    void checkObject(int object) const {
        if (object < 0 || object >= mySize) failFatal("assertion failed", __FILE__, __LINE__);
    }
    int takeExtraEntry();

    int32_t mySize;
    BigIntArray64Presized myStartAndCount;
    BigIntArray64 myRefs;
    ZVector<int*> myExtraRefs;
    int64_t myNextFree;
    int64_t myMainAreaLimit;
};
