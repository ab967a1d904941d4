#include "session/InterProcessMutex.h"

#include <cerrno>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>

#include "foundation/Failure.h"
#include "foundation/System.h"
#include "session/PidChecker.h"

static const int SHARED_MEMORY_FLAGS = 01666;  // IPC_CREAT and read-write for all
static const int LOCK_RETRY_SLEEP_MS = 100;
#ifdef MADV_POPULATE_READ
static const int MADV_POPULATE_READ_REQUEST = MADV_POPULATE_READ;
#else
static const int MADV_POPULATE_READ_REQUEST = 22;  // Linux 5.14
#endif

static void logSharedMemoryFailure(key_t key, const ZString& detail) {
    char hex[16];
    snprintf(hex, sizeof(hex), "%x", (unsigned)key);
    reportMessage((ZString("shmem ") + hex + ": " + detail).c_str());
}

void* createSharedMemoryUnix(key_t key, int size) {
    int id = shmget(key, (size_t)size, SHARED_MEMORY_FLAGS);
    if (id < 0) {
        ZString detail("shmget(): errno=");
        detail.appendLong(errno);
        logSharedMemoryFailure(key, detail);
        return nullptr;
    }
    void* address = shmat(id, nullptr, SHM_RND);
    if (address == nullptr || address == (void*)-1) {
        ZString detail(address == nullptr ? "shmat() -> NULL: shmid=" : "shmat() -> -1: shmid=");
        detail.appendLong(id).append(" errno=").appendLong(errno);
        logSharedMemoryFailure(key, detail);
        return nullptr;
    }
    // The segment is read whole at once (the markers of dead processes are
    // looked for in every slot): its pages are mapped in one call rather than
    // one fault each. A kernel without the request leaves them to faults.
    madvise(address, (size_t)size, MADV_POPULATE_READ_REQUEST);
    return address;
}

InterProcessMutex::InterProcessMutex(key_t key) : myOwnerPid((volatile int*)createSharedMemoryUnix(key, sizeof(int))) {}

static bool compareAndSwap(volatile int* word, int expected, int desired, int* found) {
    int seen = expected;
    bool swapped = __atomic_compare_exchange_n(word, &seen, desired, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    *found = seen;
    return swapped;
}

void InterProcessMutex::lock() {
    if (myOwnerPid == nullptr) return;
    int self = z_getpid();
    int owner;
    if (compareAndSwap(myOwnerPid, 0, self, &owner)) return;
    for (;;) {
        z_sleep_ms(LOCK_RETRY_SLEEP_MS);
        int current = __atomic_load_n(myOwnerPid, __ATOMIC_SEQ_CST);
        if (current == owner && PidChecker().isKnownDead(owner)) {
            int ignored;
            if (compareAndSwap(myOwnerPid, owner, self, &ignored)) return;
        }
        if (compareAndSwap(myOwnerPid, 0, self, &owner)) return;
    }
}

void InterProcessMutex::unlock() {
    if (myOwnerPid == nullptr) return;
    __atomic_store_n(myOwnerPid, 0, __ATOMIC_SEQ_CST);
}
