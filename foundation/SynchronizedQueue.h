// A queue with its own lock, for hand-over between threads.
#pragma once

#include "foundation/ZLock.h"
#include "foundation/ZVector.h"

#include "foundation/Failure.h"

template <typename T>
class SynchronizedQueue {
public:
    SynchronizedQueue() : lock("SynchronizedQueueLock") {}

    void push(const T& value) {
        LockHolder holder(&lock, LOCK_SITE);
        items.push(value);
    }
    // Moves all elements to `result`, in order, and empties the queue.
    void popAll(ZVectorSafe<T>* result) {
        if (result == nullptr) zmapFail(__LINE__);
        LockHolder holder(&lock, LOCK_SITE);
        for (int i = 0; i < items.getSize(); i++) result->push(items[i]);
        items.clear();
    }

private:
    ZLock lock;
    ZVectorSafe<T> items;
};
