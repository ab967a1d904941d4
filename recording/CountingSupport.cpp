#include "recording/CountingSupport.h"

#include <atomic>
#include <cstring>

#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"

CounterBlocks& CallCounting::ourCounterBlocks = *new CounterBlocks(16);
CounterBlocks& AllocObjectCounting::ourCounterBlocks = *new CounterBlocks(16);
ZMap<long, int>& AllocObjectCounting::ourAllocPointKey2Index = *new ZMap<long, int>(1024);

static std::atomic<bool> ourUnsafeCreated(false);
static bool ourUnsafeAsked = false;

int CountingSupportBase::getFactor() {
    // "_cf8" asks for what is the default anyway.
    static int factor = ourOptions.isInternalOption("_cf4") ? 4 : 8;
    return factor;
}

bool CountingSupportBase::isUnsafeCreated() {
    return ourUnsafeCreated.load(std::memory_order_acquire);
}

bool CountingSupportBase::ensureUnsafeCreated(const NoLock&, JNIEnv* env) {
    if (isUnsafeCreated()) return true;
    if (!ourUnsafeAsked) {
        ourUnsafeAsked = true;
        Logger::message("ensureUnsafeCreated()");
    }
    jclass core = env->FindClass(CORE_CLASS);
    jmethodID ensure = core != nullptr ? env->GetStaticMethodID(core, "ensureUnsafeCreated", "()Z") : nullptr;
    jboolean created = JNI_FALSE;
    if (ensure != nullptr) created = env->CallStaticBooleanMethod(core, ensure);
    if (env->ExceptionCheck()) {
        env->ExceptionClear();
        created = JNI_FALSE;
    }
    if (core != nullptr) env->DeleteLocalRef(core);
    if (created == JNI_TRUE) ourUnsafeCreated.store(true, std::memory_order_release);
    return created == JNI_TRUE;
}

int64_t* CountingSupportBase::getCounterPtrImpl(const LockHolder&, int index, CounterBlocks& blocks) {
    KZT_ASSERT(index >= 0);
    int block = index / COUNTERS_PER_BLOCK;
    while (blocks.getSize() <= block) blocks.push(nullptr);
    if (blocks[block] == nullptr) {
        int64_t* counters = new int64_t[(size_t)getFactor() * COUNTERS_PER_BLOCK];
        memset(counters, 0, sizeof(int64_t) * getFactor() * COUNTERS_PER_BLOCK);
        blocks[block] = counters;
    }
    return blocks[block] + index % COUNTERS_PER_BLOCK;
}

void CountingSupportBase::resetForTests(bool unsafe) {
    CounterBlocks* families[] = {&CallCounting::ourCounterBlocks, &AllocObjectCounting::ourCounterBlocks};
    for (CounterBlocks* blocks : families) {
        for (int64_t* block : *blocks) delete[] block;
        blocks->clear();
    }
    AllocObjectCounting::ourAllocPointKey2Index.clear();
    ourUnsafeCreated.store(unsafe);
    ourUnsafeAsked = false;
}

// ---- call counting ----

int64_t CallCounting::getCounterAddress(const LockHolder& lock, int methodId) {
    return (int64_t)(intptr_t)CountingSupportBase::getCounterPtrImpl(lock, methodId, ourCounterBlocks);
}

void CallCounting::applyCounts(const LockHolder& lock) {
    CountingSupportBase::applyCountsToDBTableImpl(lock, KZT_DB()->getCallCountTable(), ourCounterBlocks);
}

void CallCounting::clearCounts(const LockHolder& lock) {
    CountingSupportBase::applyAndClearImpl(lock, KZT_DB()->getCallCountTable(), ourCounterBlocks);
}

// ---- allocation counting ----

int AllocObjectCounting::getAllocPointIndex(const LockHolder&, int codePoint, int classStr) {
    long key = (long)(((uint64_t)(uint32_t)codePoint << 32) | (uint32_t)classStr);
    int* known = ourAllocPointKey2Index.getPtr(key);
    if (known != nullptr) return *known;
    DB* db = KZT_DB();
    AllocPointTable* table = db->getAllocPointTable();
    int index = table->nextIndex();
    AllocPointRecord* row = table->getPtr(index, true);
    row->myPoint = codePoint;
    row->myClass = classStr;
    row->myStamp = db->getCurrentGeneration();
    ourAllocPointKey2Index.put(key, index);
    return index;
}

int64_t AllocObjectCounting::getCounterAddress(const LockHolder& lock, int codePoint, int classStr) {
    int index = getAllocPointIndex(lock, codePoint, classStr);
    return (int64_t)(intptr_t)CountingSupportBase::getCounterPtrImpl(lock, index, ourCounterBlocks);
}

void AllocObjectCounting::applyCounts(const LockHolder& lock) {
    CountingSupportBase::applyCountsToDBTableImpl(lock, KZT_DB()->getAllocObjectCountTable(), ourCounterBlocks);
}

void AllocObjectCounting::clearCounts(const LockHolder& lock) {
    CountingSupportBase::applyAndClearImpl(lock, KZT_DB()->getAllocObjectCountTable(), ourCounterBlocks);
}
