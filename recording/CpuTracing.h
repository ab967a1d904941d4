// CPU tracing state shared by the tracing natives, the player and mode
// control: the tracing generation, the pseudo lock, the profiling times, and
// the operations that must see every thread's events (clear, stop, capture).
#pragma once

#include <jni.h>
#include <cstdint>

#include "services/AgentState.h"
#include "foundation/ZLock.h"
#include "foundation/ZVector.h"

// Bumped by each clear of CPU data and each start of CPU tracing; every
// method event carries the value it was made with, so older events are stale.
extern volatile int32_t ourCpuTracingGeneration;
// Set while Java code can store lines into a ThreadInfo (Unsafe works).
extern bool ourTracingCanSetLineNumbers;
// Uptime in ns at which CPU profiling began (moved by each clear) and stopped.
extern int64_t ourCpuProfilingStartNs;
extern int64_t ourCpuProfilingStopNs;
// The last CPU mode and the last allocation mode started, 0 before any.
extern int64_t ourLastCpuProfilingMode;
extern int64_t ourLastAllocationRecordingMode;

class ThreadInfo;

// Adaptive filter counters by method index.
extern ZVector<int32_t>& ourAdaptiveTracingMethodInvocationCounts;
extern ZVector<int64_t>& ourAdaptiveTracingMethodTimesNs;

// While set, the tracing natives produce their events under ourLock, so that
// whoever set it (under ourLock) sees every buffer quiescent.
class CpuTracingPseudoLock {
public:
    static volatile uint8_t ourLocked;

    // An event of the current thread outside tracing (monitors, exceptions),
    // under ourLock only while the pseudo lock is set.
    static void addOwnEvent(ThreadInfo* thread, const int32_t* elements, int count);
};

// Sets the pseudo lock for a scope, giving back the value it found, so that
// scopes nest (a start of tracing clears the data inside its own scope).
class CpuTracingPseudoLockScope {
public:
    explicit CpuTracingPseudoLockScope(const LockHolder&) : myPrevious(CpuTracingPseudoLock::ourLocked) {
        CpuTracingPseudoLock::ourLocked = 1;
    }
    ~CpuTracingPseudoLockScope() { CpuTracingPseudoLock::ourLocked = myPrevious; }
    CpuTracingPseudoLockScope(const CpuTracingPseudoLockScope&) = delete;
    CpuTracingPseudoLockScope& operator=(const CpuTracingPseudoLockScope&) = delete;

private:
    uint8_t myPrevious;
};

// Bits 0x4 and 0x8 set, 0x1000 clear.
inline bool isCpuTracingActive() { return (ourStatus.get() & CPU_PROFILING_MASK) == CPU_TRACING; }

class CpuTracing {
public:
    // Lines go into events unless "_tracing_disable_lines" or Java can't set them.
    static bool areLinesOn();
    // Nanoseconds from `start` to `now`; a negative delta is a clock fault:
    // logged for the first ten in the process (`site` names the caller), 0.
    static int64_t getTimeDeltaNs(int64_t now, int64_t start, int site);

    // Plays every live thread's events; resets stacks and sample times of
    // them and of the oldest finished threads; clears "cpu_profiling" and the
    // adaptive counters; starts a new tracing generation at the present uptime.
    static void clearCpuDataImpl(const LockHolder& lock);
    // Plays every live thread's events and closes its open frames now.
    static void stopTracingThreads(const LockHolder& lock);
    // Around a capture: bring every thread's data into the tables, closing
    // open frames; then reopen them with the present time.
    static void foldOpenStacks(const LockHolder& lock);
    static void reopenStacks(const LockHolder& lock);
    // What the table stream asks of CPU recording: the times of profiling
    // when its table is streamed, the names of all threads (read anew first
    // with "_force_thread_name_update"), into the database.
    static void setProfilingTimeProperties(const LockHolder& lock, int tableMask);
    static void updateThreadNamesWhenForced(JNIEnv* env, int tableMask);
    static void applyThreadNamesToDB(const LockHolder& lock);

    // Its part in a capture or a table stream: before anything is written,
    // pending events into the tables with open frames folded; afterwards
    // the frames reopened.
    static void beginCapture(const LockHolder& lock);
    static void endCapture(const LockHolder& lock);

    // What the instrumentation asks of tracing: the adaptive setting, and
    // whether injected code may store lines through Unsafe.
    static bool isAdaptiveTracing();
    static bool canSetLineNumbers();

    // Forgets the state above, for tests.
    static void resetForTests();
};
