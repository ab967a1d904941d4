// The thread registry: pseudo threads, thread start and end, the merging of
// old finished threads into "<Oldest finished threads>", and the collection
// of rows of threads that nothing refers to any more. All under ourLock.
#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "db/DB.h"
#include "db/ThreadFrameIndex.h"
#include "db/StringPool.h"
#include "foundation/System.h"
#include "foundation/UptimeProvider.h"
#include "recording/Exceptions.h"
#include "recording/Monitors.h"
#include "recording/ObjectEnumerator.h"
#include "recording/ThreadInfo.h"

ZVector<int>& ourFinishedThreadTRNs = *new ZVector<int>(100);
ThreadInfo* ourOldestFinishedThreads = nullptr;
ThreadInfo* ourVMStartThread = nullptr;
ThreadInfo* ourUnknownAllocatorThread = nullptr;
ThreadInfo* ourThreadUnknown = nullptr;
void (*ThreadInfo::ourBeforeThreadsMerged)(const LockHolder&, ZSet<int>&) = nullptr;

// Where merging may begin in ourFinishedThreadTRNs: threads that ended while
// nothing was recorded stay as they are.
static int ourMergeStart = 0;
// Set once a merge happened: only then can rows become garbage.
static bool ourMergedThreadsExist = false;
static int ourEndedThreadCount = 0;

static ThreadInfo* createPseudoThread(const LockHolder& lock, const char* name, bool start) {
    ThreadInfo* thread = new ThreadInfo(lock, ZString(name), ZString(), 0, 0, nullptr, false);
    if (start) thread->onThreadStart(lock);
    return thread;
}

void ThreadInfo::createPseudoThreads(const LockHolder& lock) {
    ourOldestFinishedThreads = createPseudoThread(lock, "<Oldest finished threads>", false);
    ourVMStartThread = createPseudoThread(lock, "VM Start", true);
    ourUnknownAllocatorThread = createPseudoThread(lock, "<Thread could not be retrieved>", true);
    ourThreadUnknown = createPseudoThread(lock, "<unknown>", true);
}


void ThreadInfo::onThreadStart(const LockHolder& lock) {
    ourAllThreadInfos.add(this);
}

void ThreadInfo::onThreadEnd(const LockHolder& lock) {
    DB* db = KZT_DB();
    ThreadRecord* record = db->getThreadTable()->getPtr(myThreadRow, true);
    record->myEndUptime = ourUptimeProvider.getUptimeNs();
    record->myStamp = db->getCurrentGeneration();
    playEvents(lock);
    ourObjectEnumerator.flushObjectAllocationDataForThread(lock, this);

    if (ourStatus.get() != 0) ourMergeStart = 0;
    else if (ourMergeStart == 0) ourMergeStart = ourFinishedThreadTRNs.getSize();
    ourFinishedThreadTRNs.push(myTRN);
    ourAllThreadInfos.remove(this);
    // In batches of ten, so that not every end merges.
    if (ourFinishedThreadTRNs.getSize() > ourOptions.getDeadThreadLimit() + 10) mergeOldFinishedThreads(lock);

    static int disableThreadGC = -1;
    if (disableThreadGC < 0) disableThreadGC = ourOptions.isInternalOption("_disable_thread_gc") ? 1 : 0;
    ourEndedThreadCount++;
    if (ourEndedThreadCount % 128 != 0) return;
    if (disableThreadGC == 0 && ourMergedThreadsExist && ourEndedThreadCount % 512 == 0) collectGarbageTRNs(lock);
    StringPool::collectGarbageStrings(lock);
}

void ThreadInfo::mergeOldFinishedThreads(const LockHolder& lock) {
    int end = ourFinishedThreadTRNs.getSize() - ourOptions.getDeadThreadLimit();
    if (ourMergeStart >= end) return;
    ZSet<int> merged(100);
    for (int i = ourMergeStart; i < end; i++) merged.add(ourFinishedThreadTRNs[i]);
    if (ourBeforeThreadsMerged != nullptr) ourBeforeThreadsMerged(lock, merged);
    Exceptions::mergeExceptionUsage(lock, merged);
    Monitors::mergeMonitorUsage(lock, merged);
    ourObjectEnumerator.flushCollectedObjectAgesToDB(lock);
    DB* db = KZT_DB();
    int generation = db->getCurrentGeneration();
    int target = ourOldestFinishedThreads->myTFIIndex;
    db->getThreadTable()->forEachRecord([&](long long, ThreadRecord& record) {
        if (record.myStamp < 1) return;
        KZT_ASSERT(record.myTRN != 0);
        if (!merged.contains(record.myTRN)) return;
        KZT_ASSERT(record.myTFIIndex != 0);
        db->getThreadFrameIndex()->changeThread(lock, record.myTFIIndex, target);
        ourIndexForTFIPool.releaseIndex(record.myTFIIndex);
        record.myTFIIndex = 0;
        record.myStamp = generation;
    });
    ourFinishedThreadTRNs.removeRange(ourMergeStart, end);
    ourMergedThreadsExist = true;
}

// TRNs that rows of other tables refer to.
static void collectUsedTRNs(DB* db, ZSet<int>& used) {
    auto add = [&](int trn) {
        if (trn != 0) used.add(trn);
    };
    db->getMonitorTable()->forEachRecord([&](long long, MonitorRecord& record) {
        add(record.myOwnerTRN);
        add(record.myBlockedTRN);
    });
    db->getExceptionTable()->forEachRecord([&](long long, ExceptionRecord& record) { add(record.myTRN); });
    db->getTelemetryTable()->forEachRecord([&](long long, TelemetryRecord& record) {
        for (const _ThreadState& state : record.myThreadStates) add(state.myTRN);
    });
    db->getEventRecordTable()->forEachRecord([&](long long, EventRecord& record) {
        if (record.myStamp < 1) return;
        EventTable* table = db->getEventTable(record.myTableId);
        if (table == nullptr || table->getThreadColumn() < 0) return;
        add(table->getInt32Column(record, table->getThreadColumn()));
    });
}

void ThreadInfo::collectGarbageTRNs(const LockHolder& lock) {
    static int ourCollections = 0;
    int64_t startMs = ourUptimeProvider.getUptimeMs();
    DB* db = KZT_DB();
    ThreadTable* threads = db->getThreadTable();
    if (threads->getCapacity() <= 0) return;
    ZSet<int> used(1000);
    collectUsedTRNs(db, used);
    int checked = 0;
    int deleted = 0;
    int generation = db->getCurrentGeneration();
    threads->forEachRecord([&](long long index, ThreadRecord& record) {
        if (record.myStamp < 1) return;
        checked++;
        if (record.myTFIIndex > 0) return;
        KZT_ASSERT(record.myTRN != 0);
        if (used.getSize() > 0 && used.contains(record.myTRN)) return;
        threads->deleteRecord((int)index, generation);
        deleted++;
    });
    ZString text("TRN: gc #");
    text.appendLong(ourCollections++).appendChar(' ').appendLong(checked).appendChar('-').appendLong(deleted);
    if (deleted > 0) text.appendChar('=').appendLong(checked - deleted);
    text.append(" ms=").appendLong(ourUptimeProvider.getUptimeMs() - startMs);
    Logger::message(text);
}

void ThreadInfo::resetForTests() {
    LockHolder lock(&ourLock, LOCK_SITE);
    ZVector<ThreadInfo*> all;
    for (int slot = 0; slot < ourAllThreadInfos.getCapacity(); slot++) {
        if (ourAllThreadInfos.isFull(slot)) all.push(ourAllThreadInfos.keyAt(slot));
    }
    for (ThreadInfo* thread : all) delete thread;
    delete ourOldestFinishedThreads;
    ourAllThreadInfos.clear();
    ourTRN2ThreadInfo.clear();
    ourFinishedThreadTRNs.clear();
    ourIndexForTFIPool.clearIndexPool();
    ourOldestFinishedThreads = ourVMStartThread = ourUnknownAllocatorThread = ourThreadUnknown = nullptr;
    ourRunningNumber = 0;
    ourMergeStart = 0;
    ourMergedThreadsExist = false;
    ourEndedThreadCount = 0;
    ourCreatedObjectCountInDeadThreads = 0;
    ourCreatedObjectSizeInDeadThreads = 0;
}
