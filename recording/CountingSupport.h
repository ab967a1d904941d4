// Counters too hot for the event stream: a call counter for each method
// instrumented for tracing, and an object counter for each allocation point.
// Injected code and the allocation path add to plain memory without a lock;
// the sums go into "call_count" and "alloc_object_count" when somebody
// needs the data.
//
// A family of counters is a vector of blocks. Block B serves the indices
// B * 4096 to B * 4096 + 4095 and holds F stripes of 4096 counters, one
// stripe a writer by its thread number modulo F, so that threads mostly
// write different cache lines. Blocks never move nor go away: injected code
// keeps their addresses as constants.
#pragma once

#include <jni.h>
#include <cstdint>

#include "db/DB.h"
#include "foundation/ZLock.h"
#include "foundation/ZMap.h"
#include "foundation/ZVector.h"
#include "services/SharedConstants.h"

typedef ZVector<int64_t*, 10> CounterBlocks;

class CountingSupportBase {
public:
    static constexpr int COUNTERS_PER_BLOCK = 1 << COUNTERS_PER_BLOCK_POW;
    // Bytes of one stripe.
    static constexpr int STRIPE_BYTES = COUNTERS_PER_BLOCK * 8;

    // The number of stripes, 8, or 4 with "_cf4"; read once.
    static int getFactor();
    // Whether Java can count through Unsafe. The Java half is asked until it
    // says yes once.
    static bool ensureUnsafeCreated(const NoLock&, JNIEnv* env);
    static bool isUnsafeCreated();

    // Stripe 0 of the counter of `index`, its block made on need.
    static int64_t* getCounterPtrImpl(const LockHolder& lock, int index, CounterBlocks& blocks);
    // The stripe that a thread writes, from stripe 0 of a counter.
    static int64_t* getStripe(int64_t* counter, int trn) {
        return counter + (int64_t)(trn & (getFactor() - 1)) * COUNTERS_PER_BLOCK;
    }

    // The stripes' sums into the table's current values. Rows are made only
    // for sums other than 0; a row whose value did not change keeps its stamp.
    template <typename Table>
    static void applyCountsToDBTableImpl(const LockHolder& lock, Table* table, CounterBlocks& blocks);
    // Counters are never reset, since running code writes them: a clear sets
    // each row's base to its current value.
    template <typename Table>
    static void clearDBTableImpl(const LockHolder& lock, Table* table);
    // A clear of a family: what was counted until now goes into the table, then to the base.
    template <typename Table>
    static void applyAndClearImpl(const LockHolder& lock, Table* table, CounterBlocks& blocks) {
        applyCountsToDBTableImpl(lock, table, blocks);
        clearDBTableImpl(lock, table);
    }

    // Frees every block and forgets Unsafe, for tests; `unsafe` is what
    // isUnsafeCreated answers afterwards.
    static void resetForTests(bool unsafe);
};

class CallCounting {
public:
    static CounterBlocks& ourCounterBlocks;
    // Address of stripe 0 of a method's counter, for the patcher.
    static int64_t getCounterAddress(const LockHolder& lock, int methodId);
    static void applyCounts(const LockHolder& lock);
    static void clearCounts(const LockHolder& lock);
};

class AllocObjectCounting {
public:
    static CounterBlocks& ourCounterBlocks;
    // (code point in the high half, class string in the low half) -> "alloc_point" row.
    static ZMap<long, int>& ourAllocPointKey2Index;

    static int getAllocPointIndex(const LockHolder& lock, int codePoint, int classStr);
    // Address of stripe 0 of an allocation point's counter.
    static int64_t getCounterAddress(const LockHolder& lock, int codePoint, int classStr);
    static void applyCounts(const LockHolder& lock);
    static void clearCounts(const LockHolder& lock);
};

template <typename Table>
void CountingSupportBase::applyCountsToDBTableImpl(const LockHolder& lock, Table* table, CounterBlocks& blocks) {
    if (!isUnsafeCreated()) return;
    int factor = getFactor();
    int generation = KZT_DB()->getCurrentGeneration();
    int64_t sums[COUNTERS_PER_BLOCK];
    for (int block = 0; block < blocks.getSize(); block++) {
        const int64_t* counters = blocks[block];
        if (counters == nullptr) continue;
        for (int i = 0; i < COUNTERS_PER_BLOCK; i++) sums[i] = __atomic_load_n(&counters[i], __ATOMIC_RELAXED);
        for (int stripe = 1; stripe < factor; stripe++) {
            const int64_t* values = counters + stripe * COUNTERS_PER_BLOCK;
            for (int i = 0; i < COUNTERS_PER_BLOCK; i++) sums[i] += __atomic_load_n(&values[i], __ATOMIC_RELAXED);
        }
        for (int i = 0; i < COUNTERS_PER_BLOCK; i++) {
            int index = block * COUNTERS_PER_BLOCK + i;
            typename Table::Record* row = table->getPtr(index, false);
            if (row == nullptr || row->myStamp < 1) {
                if (sums[i] == 0) continue;
                row = table->getPtr(index, true);
                *row = typename Table::Record();
            } else if (row->myCurrent == sums[i]) {
                continue;
            }
            row->myCurrent = sums[i];
            row->myStamp = generation;
        }
    }
}

template <typename Table>
void CountingSupportBase::clearDBTableImpl(const LockHolder& lock, Table* table) {
    int generation = KZT_DB()->getCurrentGeneration();
    table->forEachRecord([&](long long, typename Table::Record& row) {
        if (row.myStamp < 1 || row.myBase == row.myCurrent) return;
        row.myBase = row.myCurrent;
        row.myStamp = generation;
    });
}
