#include "recording/CpuTracing.h"

#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "db/DB.h"
#include "foundation/UptimeProvider.h"
#include "recording/CountingSupport.h"
#include "recording/EventEncoding.h"
#include "recording/ThreadInfo.h"
#include "recording/TracingSettings.h"

volatile int32_t ourCpuTracingGeneration = 0;
volatile uint8_t CpuTracingPseudoLock::ourLocked = 0;
bool ourTracingCanSetLineNumbers = false;
int64_t ourCpuProfilingStartNs = 0;
int64_t ourCpuProfilingStopNs = 0;
int64_t ourLastCpuProfilingMode = 0;
int64_t ourLastAllocationRecordingMode = 0;
ZVector<int32_t>& ourAdaptiveTracingMethodInvocationCounts = *new ZVector<int32_t>(1000000);
ZVector<int64_t>& ourAdaptiveTracingMethodTimesNs = *new ZVector<int64_t>(1000000);

void CpuTracing::clearCpuDataImpl(const LockHolder& lock) {
    CpuTracingPseudoLockScope pseudoLock(lock);
    DB* db = KZT_DB();
    ThreadInfo::forEachLiveThread([&](ThreadInfo* thread) {
        thread->playEvents(lock);
        thread->resetStack();
        thread->resetSampleTimes();
    });
    if (ourOldestFinishedThreads != nullptr) {
        ourOldestFinishedThreads->resetStack();
        ourOldestFinishedThreads->resetSampleTimes();
    }
    CallCounting::clearCounts(lock);
    db->getCpuProfilingTable()->clearTable();
    db->markTableCleared(TABLE_CPU_PROFILING);
    ourAdaptiveTracingMethodInvocationCounts.clear();
    ourAdaptiveTracingMethodTimesNs.clear();
    ourCpuTracingGeneration = ourCpuTracingGeneration + 1;
    ourCpuProfilingStartNs = ourUptimeProvider.getUptimeNs();
}

void CpuTracing::stopTracingThreads(const LockHolder& lock) {
    ThreadInfo::forEachLiveThread([&](ThreadInfo* thread) {
        thread->playEvents(lock);
        thread->resetStackTrace(lock, false);
        thread->resetStack();
    });
}

void CpuTracing::foldOpenStacks(const LockHolder& lock) {
    ThreadInfo::forEachLiveThread([&](ThreadInfo* thread) {
        thread->playEvents(lock);
        thread->resetStackTrace(lock, false);
    });
}

void CpuTracing::reopenStacks(const LockHolder& lock) {
    ThreadInfo::forEachLiveThread([&](ThreadInfo* thread) { thread->restoreStackTrace(lock, false); });
}

void CpuTracing::setProfilingTimeProperties(const LockHolder& lock, int tableMask) {
    if ((tableMask & (1 << TABLE_CPU_PROFILING)) == 0 || ourLastCpuProfilingMode == 0) return;
    DB* db = KZT_DB();
    bool running = (ourStatus.get() & CPU_PROFILING_MASK) != 0;
    db->setLongProperty(lock, "kzt.cpu.profiling.start.ns", ourCpuProfilingStartNs);
    db->setLongProperty(lock, "kzt.cpu.profiling.end.ns", running ? ourUptimeProvider.getUptimeNs() : ourCpuProfilingStopNs);
}

void CpuTracing::applyThreadNamesToDB(const LockHolder& lock) {
    DB* db = KZT_DB();
    ThreadInfo::forEachLiveThread([&](ThreadInfo* thread) { thread->applyThreadNameToDB(lock, db); });
    if (ourOldestFinishedThreads != nullptr) ourOldestFinishedThreads->applyThreadNameToDB(lock, db);
}

void CpuTracing::resetForTests() {
    ourCpuTracingGeneration = 0;
    CpuTracingPseudoLock::ourLocked = 0;
    ourTracingCanSetLineNumbers = false;
    ourCpuProfilingStartNs = 0;
    ourCpuProfilingStopNs = 0;
    ourLastCpuProfilingMode = 0;
    ourAdaptiveTracingMethodInvocationCounts.clear();
    ourAdaptiveTracingMethodTimesNs.clear();
}

// ---- Taking part in captures and table streams ----

static uint8_t ourPseudoLockBeforeCapture = 0;

void CpuTracingPseudoLock::addOwnEvent(ThreadInfo* thread, const int32_t* elements, int count) {
    bool locked = ourLocked != 0;
    LockHolder lock(locked ? &ourLock : nullptr, LOCK_SITE);
    thread->addEvent(elements, count, !locked);
}

void CpuTracing::beginCapture(const LockHolder& lock) {
    ourPseudoLockBeforeCapture = CpuTracingPseudoLock::ourLocked;
    CpuTracingPseudoLock::ourLocked = 1;
    CpuTracing::foldOpenStacks(lock);
}

void CpuTracing::endCapture(const LockHolder& lock) {
    CpuTracing::reopenStacks(lock);
    CpuTracingPseudoLock::ourLocked = ourPseudoLockBeforeCapture;
}

// With "_force_thread_name_update" every thread's name is read again.
static void updateThreadNames(JNIEnv* env) {
    jint count = 0;
    jthread* threads = nullptr;
    if (ourJVMTI->GetAllThreads(&count, &threads) != JVMTI_ERROR_NONE) return;
    for (int i = 0; i < count; i++) {
        void* data = nullptr;
        if (ourJVMTI->GetThreadLocalStorage(threads[i], &data) == JVMTI_ERROR_NONE && data != nullptr)
            ((ThreadInfo*)data)->ensureThreadHasName(env, threads[i], true);
        env->DeleteLocalRef(threads[i]);
    }
    deallocate(threads);
}

void CpuTracing::updateThreadNamesWhenForced(JNIEnv* env, int tableMask) {
    static int forceNames = -1;
    if (forceNames < 0) forceNames = ourOptions.isInternalOption("_force_thread_name_update") ? 1 : 0;
    if (forceNames == 1 && env != nullptr && (tableMask & (1 << TABLE_THREAD)) != 0) updateThreadNames(env);
}

// ---- What the instrumentation asks of tracing ----

bool CpuTracing::isAdaptiveTracing() {
    return ourTracingSettings.myAdaptive;
}

bool CpuTracing::canSetLineNumbers() {
    return ourTracingCanSetLineNumbers;
}
