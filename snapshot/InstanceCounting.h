// Instance counting: how many objects of each loaded class the heap holds,
// and their bytes, for the "instance_count" table of a snapshot. Classes are
// tagged in a JVMTI environment of their own, so these tags never meet the
// others.
#pragma once

#include <jni.h>
#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/ZMap.h"
#include "foundation/ZString.h"

class DB;

class InstanceCounting {
public:
    // Whether a capture counts instances: a memory snapshot always, another
    // unless "_no_instance_count_on_perf_snapshot_capture".
    static bool isWanted(bool memorySnapshot);

    // Tags each loaded class with its "instance_count" row (kept from one
    // capture to the next) and walks the heap.
    void gatherClassInstanceStatistics(const LockHolder& lock, JNIEnv* env);
    // One row per class with instances: its name, the count and the bytes.
    void updateDatabase(const LockHolder& lock, DB* db);

    struct SizeAndCount {
        int64_t mySize;
        int32_t myCount;
    };

private:
    ZMap<int, SizeAndCount> myCounts{10000};
};
