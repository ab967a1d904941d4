#include <cstring>

#include "foundation/ZLock.h"
#include "foundation/ZMap.h"
#include "foundation/ZStringSet.h"

int32_t zmap_hashCode(const char* key) {
    if (key == nullptr) return 0;
    return hashText31(key, (int)strlen(key));
}

bool zmap_equal(const char* a, const char* b) {
    return strcmp(a, b) == 0;
}

ZStringSet::~ZStringSet() {
    for (int slot = 0; slot < buckets.getCapacity(); slot++) {
        if (buckets.isFull(slot)) delete buckets.valueAt(slot);
    }
}

bool ZStringSet::add(const ZString& s) {
    int hash = s.hashCode();
    ZVectorSafe<ZString>** bucket = buckets.getPtr(hash);
    if (bucket != nullptr) {
        if ((*bucket)->contains(s)) return false;
        (*bucket)->push(s);
    } else {
        ZVectorSafe<ZString>* created = new ZVectorSafe<ZString>();
        created->push(s);
        buckets.put(hash, created);
    }
    count++;
    return true;
}

bool ZStringSet::contains(const ZString& s) const {
    int slot = buckets.get_index(s.hashCode());
    if (slot < 0) return false;
    return const_cast<ZMap<int, ZVectorSafe<ZString>*>&>(buckets).valueAt(slot)->contains(s);
}

ZLock::ZLock(const char* lockName) : name(lockName) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

// Locks are never torn down: threads may still hold them while the process exits.
ZLock::~ZLock() {}

ZLock ourLock("ourLock");
