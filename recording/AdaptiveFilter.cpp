// The adaptive filter: watches exits as they are played and takes cheap,
// hot methods out of tracing, together with everything they call. The
// expensive test runs once in 32768 calls of a method.
#include "services/Logger.h"
#include "services/Options.h"
#include "db/DB.h"
#include "foundation/System.h"
#include "foundation/UptimeProvider.h"
#include "recording/CpuTracing.h"
#include "recording/ThreadInfo.h"
#include "recording/TracingSettings.h"

static bool isTracingDebug() {
    static int debug = -1;
    if (debug < 0) debug = ourOptions.isDebug("tracing") ? 1 : 0;
    return debug == 1;
}

static void setMethodFlags(int method, int flags) {
    MethodRecord* record = ZMethod::getRecord(method);
    record->myFlags |= flags;
    record->myStamp = ourDB->getCurrentGeneration();
}

// The callees of every non-recursive frame of `method` leave tracing with it.
static void excludeCallees(const LockHolder& lock, int method) {
    ZVector<int, 64> work;
    ourFrameTable->forEachRecord([&](long long index, FrameRecord& record) {
        int frame = (int)index;
        if (frame < 1 || CodePointStorage::getMethod(record.myCodePoint) != method) return;
        if (!ZFrameStorage::isRecursive(lock, frame)) work.push(frame);
    });
    while (!work.isEmpty()) {
        int frame = work.pop();
        FrameRecord* record = ourFrameTable->getPtr(frame, true);
        int callee = CodePointStorage::getMethod(record->myCodePoint);
        int flags = ZMethod::getFlags(callee);
        if ((flags & (METHOD_FLAG_EXCLUDED | METHOD_FLAG_NEVER_EXCLUDED)) == 0) {
            if (isTracingDebug()) {
                Logger::message(ZString("adaptive_filter: (exclude callee) ") +
                                ZFrameStorage::getMethodDescription(lock, callee));
            }
            setMethodFlags(callee, METHOD_FLAG_EXCLUDED | METHOD_FLAG_EXCLUDED_CALLEE);
        }
        for (int child = record->myFirstChild; child != -1; child = ourFrameTable->getPtr(child, true)->myNextSibling)
            work.push(child);
    }
}

void ThreadInfo::adaptiveFilter(const LockHolder& lock, int method, int64_t deltaNs) {
    ZVector<int32_t>& counts = ourAdaptiveTracingMethodInvocationCounts;
    ZVector<int64_t>& times = ourAdaptiveTracingMethodTimesNs;
    if (method < 0) return;
    if (counts.getSize() <= method) counts.resize(method + 1, 0);
    if (times.getSize() <= method) times.resize(method + 1, 0);
    if (counts[method] == 0x7fffffff) return;
    int32_t count = ++counts[method];
    int64_t total = (times[method] += deltaNs);
    // (C - minimum) a non-negative multiple of 32768, in one mask.
    uint32_t sinceMinimum = (uint32_t)count - (uint32_t)ourTracingSettings.myAdaptiveMinMethodInvocationCount;
    if ((sinceMinimum & 0x80007fffu) != 0) return;
    int64_t average = total / count;
    if (average >= ourTracingSettings.myAdaptiveMaxAverageMethodTimeNs) return;
    int64_t tracingNs = ourUptimeProvider.getUptimeNs() - ourCpuProfilingStartNs;
    if (tracingNs < 1) {
        ZString text("adaptive_filter: warning: tracingTimeNs=");
        text.appendLong(tracingNs);
        Logger::message(text);
        return;
    }
    double percent = (double)total / (double)tracingNs * 100;
    // Excluded only when cheap per call and expensive in sum.
    if (ourTracingSettings.myAdaptiveMinMethodTimePercent >= percent) return;
    int flags = ZMethod::getFlags(method);
    if ((flags & METHOD_FLAG_NEVER_EXCLUDED) != 0) return;
    if ((flags & METHOD_FLAG_EXCLUDED) != 0) {
        if (isTracingDebug()) {
            Logger::message(ZString("adaptive_filter: (already excluded) ") +
                            ZFrameStorage::getMethodDescription(lock, method));
        }
        return;
    }
    if (isTracingDebug()) {
        ZString text("adaptive_filter: ");
        text.append(ZFrameStorage::getMethodDescription(lock, method))
            .append("\n  cnt=")
            .appendLong(count)
            .append(" avg_ns=")
            .appendLong(average)
            .append(" time_ns=")
            .appendLong(total)
            .append(" (")
            .append(doubleToString(percent, 3))
            .append("% at tracing_time_ms=")
            .appendLong(tracingNs / 1000000)
            .appendChar(')');
        Logger::message(text);
    }
    setMethodFlags(method, METHOD_FLAG_EXCLUDED);
    excludeCallees(lock, method);
}
