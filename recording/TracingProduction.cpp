// Method events as the tracing natives make them, on the traced thread
// itself. The fast path reads a clock and appends five or six elements to
// the thread's own buffer; the lock is taken only while the pseudo lock is
// set or the buffer is full.
#include "services/Options.h"
#include "db/DB.h"
#include "foundation/System.h"
#include "recording/CpuTracing.h"
#include "recording/EventEncoding.h"
#include "recording/ThreadInfo.h"
#include "recording/TracingSettings.h"

bool CpuTracing::areLinesOn() {
    static int disabledByOption = -1;
    if (disabledByOption < 0) disabledByOption = ourOptions.isInternalOption("_tracing_disable_lines") ? 1 : 0;
    return disabledByOption == 0 && ourTracingCanSetLineNumbers;
}

static int64_t readMethodClock(int method) {
    return Filter::isWallTimed(method) ? getTimeNsForTracing() : getCurrentThreadCpuTimeNs();
}

void ThreadInfo::onMethodEntry(JNIEnv* env, int methodId) {
    bool linesOn = CpuTracing::areLinesOn();
    int line = linesOn ? myPendingLine : 0;
    myPendingLine = 0;
    int generation = ourCpuTracingGeneration;
    if (mySeenTracingGeneration != generation) {
        mySeenTracingGeneration = generation;
        myStackKnown = false;
    }
    bool locked = CpuTracingPseudoLock::ourLocked != 0;
    LockHolder lock(locked ? &ourLock : nullptr, LOCK_SITE);
    if (myStackKnown) {
        int64_t time = readMethodClock(methodId);
        int32_t event[6] = {EVENT_METHOD_ENTER, methodId, lowHalf(time), highHalf(time), generation, line};
        addEvent(event, 6, !locked);
        return;
    }
    // The first event of a generation carries the whole stack.
    int64_t wallTime = getTimeNsForTracing();
    int64_t cpuTime = getCurrentThreadCpuTimeNs();
    int node = getStackCapture()->fillCurrentNodeJvmti_forTracing(env, linesOn);
    int32_t event[7] = {EVENT_METHOD_ENTER_WITH_STACK, node,     lowHalf(wallTime), highHalf(wallTime),
                        lowHalf(cpuTime),              highHalf(cpuTime), generation};
    addEvent(event, 7, !locked);
    myStackKnown = true;
}

void ThreadInfo::onMethodExit(JNIEnv* env, int methodId) {
    myPendingLine = 0;
    int generation = ourCpuTracingGeneration;
    if (mySeenTracingGeneration != generation) {
        mySeenTracingGeneration = generation;
        myStackKnown = false;
    }
    // Without a known stack the player could not place the exit.
    if (!myStackKnown) return;
    bool locked = CpuTracingPseudoLock::ourLocked != 0;
    LockHolder lock(locked ? &ourLock : nullptr, LOCK_SITE);
    int64_t time = readMethodClock(methodId);
    int32_t event[5] = {EVENT_METHOD_EXIT, methodId, lowHalf(time), highHalf(time), generation};
    addEvent(event, 5, !locked);
}
