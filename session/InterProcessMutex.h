// A mutex shared by all processes of the machine, in System V shared memory.
// The word holds the owner's pid, so a holder that died is found and replaced.
#pragma once

#include <sys/types.h>

// Attaches the segment `key` of `size` bytes, creating it on first use.
// Null on failure, which is logged.
void* createSharedMemoryUnix(key_t key, int size);

class InterProcessMutex {
public:
    explicit InterProcessMutex(key_t key);
    InterProcessMutex(const InterProcessMutex&) = delete;
    InterProcessMutex& operator=(const InterProcessMutex&) = delete;

    // Not recursive: a process that locks twice waits for ever on itself.
    void lock();
    void unlock();
    // False when the segment could not be attached: then lock and unlock do nothing.
    bool isAvailable() const { return myOwnerPid != nullptr; }

private:
    volatile int* myOwnerPid;
};

class InterProcessMutexHolder {
public:
    explicit InterProcessMutexHolder(InterProcessMutex& mutex) : myMutex(mutex) { myMutex.lock(); }
    ~InterProcessMutexHolder() { myMutex.unlock(); }
    InterProcessMutexHolder(const InterProcessMutexHolder&) = delete;
    InterProcessMutexHolder& operator=(const InterProcessMutexHolder&) = delete;

private:
    InterProcessMutex& myMutex;
};
