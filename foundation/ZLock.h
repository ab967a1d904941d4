// Locks. ZLock is a named recursive mutex; LockHolder takes it for a scope.
// A function that needs a lock held takes `const LockHolder&` first, one that
// must run without takes `const NoLock&`: the parameter is the proof.
#pragma once

#include <pthread.h>

#include "foundation/ZString.h"

class ZLock {
public:
    explicit ZLock(const char* name);
    ~ZLock();
    ZLock(const ZLock&) = delete;
    ZLock& operator=(const ZLock&) = delete;

    void enter() { pthread_mutex_lock(&mutex); }
    void leave() { pthread_mutex_unlock(&mutex); }
    const ZString& getName() const { return name; }

private:
    pthread_mutex_t mutex;
    ZString name;
};

class LockHolder {
public:
    // `label` names the call site; it is not stored. A null lock means no locking.
    LockHolder(ZLock* lock, const char* label) : lock(lock) {
        if (lock != nullptr) lock->enter();
    }
    ~LockHolder() {
        if (lock != nullptr) lock->leave();
    }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

private:
    ZLock* lock;
};

class NoLock {};

#define KZT_STRINGIFY2(x) #x
#define KZT_STRINGIFY(x) KZT_STRINGIFY2(x)
// The label of a lock site: source name and line.
#define LOCK_SITE __FILE__ ":" KZT_STRINGIFY(__LINE__)

// The one lock of the database, string pool, registries and frame tree.
extern ZLock ourLock;
