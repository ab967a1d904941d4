// Closing and reopening a thread's open frames around changes of tracing
// state (clear, stop, snapshot, disorder). A stack can mix wall-timed and
// CPU-timed frames, so each frame keeps a start in its own clock.
#include "services/Logger.h"
#include "db/DB.h"
#include "foundation/System.h"
#include "recording/CpuTracing.h"
#include "recording/ThreadInfo.h"
#include "recording/TracingSettings.h"

static bool isWallTimedFrame(int frame) {
    return Filter::isWallTimed(ZFrameStorage::getMethodByFrame(frame));
}

int64_t CpuTracing::getTimeDeltaNs(int64_t now, int64_t start, int site) {
    int64_t delta = now - start;
    if (delta >= 0) return delta;
    static int ourReported = 0;
    if (ourReported < 10) {
        ourReported++;
        ZString text("warning: tracing time jump: (");
        text.appendLong(site).append(") ").appendLong(now).appendChar(' ').appendLong(start);
        Logger::message(text);
    }
    return 0;
}

void ThreadInfo::resetStackTrace(const LockHolder& lock, bool currentThread) {
    if (!isCpuTracingActive() || myCurrentFrame == -1) return;
    int64_t cpuTime = currentThread ? getCurrentThreadCpuTimeNs() : getThreadCpuTimeNs();
    int64_t wallTime = getTimeNsForTracing();
    for (int frame = myCurrentFrame; frame >= 1; frame = ZFrameStorage::getParent(frame)) {
        KZT_ASSERT(!myTimeStack.isEmpty());
        bool wall = isWallTimedFrame(frame);
        int64_t start = myTimeStack.pop();
        CpuProfilingRecord* record = getCpuProfilingRecord(lock, frame);
        record->myTime += CpuTracing::getTimeDeltaNs(wall ? wallTime : cpuTime, start, wall ? 3 : 2);
        record->myStamp = ourDB->getCurrentGeneration();
    }
    KZT_ASSERT(myTimeStack.isEmpty());
}

void ThreadInfo::restoreStackTrace(const LockHolder& lock, bool currentThread) {
    if (!isCpuTracingActive() || myCurrentFrame == -1) return;
    int64_t cpuTime = currentThread ? getCurrentThreadCpuTimeNs() : getThreadCpuTimeNs();
    pushStartTimes(lock, getTimeNsForTracing(), cpuTime);
}

void ThreadInfo::pushStartTimes(const LockHolder& lock, int64_t wallTime, int64_t cpuTime) {
    KZT_ASSERT(myCurrentFrame != -1 && myTimeStack.isEmpty());
    for (int frame = myCurrentFrame; frame >= 1; frame = ZFrameStorage::getParent(frame)) {
        myTimeStack.push(isWallTimedFrame(frame) ? wallTime : cpuTime);
    }
    // Pushed from the top down: the root goes to the bottom.
    int64_t* times = myTimeStack.getElements();
    for (int low = 0, high = myTimeStack.getSize() - 1; low < high; low++, high--) {
        int64_t swap = times[low];
        times[low] = times[high];
        times[high] = swap;
    }
}
