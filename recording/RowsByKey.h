// The rows of a fixed table found by a key of the thread's TRN and three
// more columns ("monitor", "exception"), and the folding of the rows of
// finished threads into the row of "<Oldest finished threads>" that has the
// same rest of the key. All under ourLock.
//
#pragma once

#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/ZMap.h"
#include "foundation/ZVector.h"

// The TRN and three more columns of a row.
struct RowKey {
    int32_t myTRN = 0;
    int32_t mySecond = 0;
    int32_t myThird = 0;
    int32_t myFourth = 0;

    bool operator==(const RowKey& other) const {
        return myTRN == other.myTRN && mySecond == other.mySecond && myThird == other.myThird &&
               myFourth == other.myFourth;
    }
    RowKey withTRN(int trn) const { return {trn, mySecond, myThird, myFourth}; }
};
inline int32_t zmap_hashCode(const RowKey& key) {
    uint32_t hash = ((uint32_t)key.myTRN * 29u + (uint32_t)key.mySecond) * 29u + (uint32_t)key.myThird;
    return (int32_t)(hash * 29u + (uint32_t)key.myFourth);
}

// `fill(record, key)` writes the key's columns into a new row.
template <typename Table, void (*fill)(typename Table::Record&, const RowKey&)>
class RowsByKey {
public:
    typedef typename Table::Record Record;
    typedef RowKey Key;

    RowsByKey() : myIndexByKey(1024) {}
    RowsByKey(const RowsByKey&) = delete;
    RowsByKey& operator=(const RowsByKey&) = delete;

    // The row of `key`, made on first sight with the key's columns.
    int getOrCreate(const LockHolder&, Table* table, const Key& key, int generation) {
        int known = myIndexByKey.get(key, 0);
        if (known != 0) return known;
        int index = table->nextIndex();
        Record* record = table->getPtr(index, true);
        *record = Record();
        fill(*record, key);
        record->myStamp = generation;
        myIndexByKey.put(key, index);
        return index;
    }

    // After the table was cleared.
    void clear(const LockHolder&) { myIndexByKey.clear(); }

    // Every row of a thread in `trns` is added to the row of `targetTRN` with
    // the rest of its key by `add(target, source)`, and deleted.
    template <typename Add>
    void mergeThreads(const LockHolder& lock, Table* table, const ZSet<int>& trns, int targetTRN, int generation,
                      Add add) {
        ZVector<Key, 64> moved;
        for (int slot = 0; slot < myIndexByKey.getCapacity(); slot++) {
            if (myIndexByKey.isFull(slot) && trns.contains(myIndexByKey.keyAt(slot).myTRN))
                moved.push(myIndexByKey.keyAt(slot));
        }
        for (const Key& key : moved) {
            int from = myIndexByKey.remove(key);
            Record* source = table->getPtr(from, true);
            int to = getOrCreate(lock, table, key.withTRN(targetTRN), generation);
            Record* target = table->getPtr(to, true);
            add(*target, *source);
            target->myStamp = generation;
            table->deleteRecord(from, generation);
        }
    }

private:
    ZMap<Key, int> myIndexByKey;
};
