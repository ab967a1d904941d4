// ZRollingArray: a ring of records addressed by ever-growing indices. Row i
// lives at i % capacity; when the ring is full the oldest row is given up.
#pragma once

#include <cstdint>
#include <new>

#include "foundation/Failure.h"

template <typename T>
class ZRollingArray {
public:
    // The storage is taken at once, but a record is made only when its
    // position is first used: a long ring that a short run never fills costs
    // no more than its rows.
    explicit ZRollingArray(int capacityInRows) : records(nullptr), capacity(capacityInRows), first(0), end(0) {
        if (capacity < 1) zmapFail(__LINE__);
        records = static_cast<T*>(::operator new(sizeof(T) * (size_t)capacity));
    }
    ~ZRollingArray() {
        long long made = end < capacity ? end : capacity;
        for (long long i = 0; i < made; i++) records[i].~T();
        ::operator delete(records);
    }
    ZRollingArray(const ZRollingArray&) = delete;
    ZRollingArray& operator=(const ZRollingArray&) = delete;

    int getCapacity() const { return capacity; }
    long long getFirstIndex() const { return first; }
    long long getEndIndex() const { return end; }

    // Appends a row and returns its index and storage.
    long long addRow(T** row) {
        long long index = end++;
        if (index < capacity) new (&records[index]) T();
        if (end - first > capacity) first++;
        *row = &records[index % capacity];
        return index;
    }
    // The row, or null outside first..end.
    T* getRow(long long index) {
        if (index < first || index >= end) return nullptr;
        return &records[index % capacity];
    }
    // Forgets all rows; numbering continues.
    void clear() { first = end; }

private:
    T* records;
    int32_t capacity;
    long long first;
    long long end;
};
