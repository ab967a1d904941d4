// Clocks: the monotonic time of the agent, the wall clock, dates, sleeping.
#include <atomic>
#include <cerrno>
#include <ctime>
#include <sys/time.h>

#include "foundation/Failure.h"
#include "foundation/System.h"

static std::atomic<int64_t> ourLastTimeNs(0);
static int64_t ourLastRawTimeNs = 0;
static int64_t ourEmulatedTimeNs = 0;
static bool ourEmulationStarted = false;

// 0 not yet tested, 1 CLOCK_MONOTONIC works, 2 it does not.
static std::atomic<int> ourMonotonicClockState(0);

static const int64_t MAX_EMULATED_STEP_NS = 180000000000LL;

static bool readMonotonicNs(int64_t* result) {
    struct timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return false;
    *result = (int64_t)now.tv_sec * 1000000000LL + now.tv_nsec;
    return true;
}

static int64_t readWallClockNs() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    return (int64_t)now.tv_sec * 1000000000LL + (int64_t)now.tv_usec * 1000;
}

static bool hasMonotonicClock() {
    int state = ourMonotonicClockState.load(std::memory_order_relaxed);
    if (state == 0) {
        int64_t ignored;
        state = readMonotonicNs(&ignored) ? 1 : 2;
        ourMonotonicClockState.store(state, std::memory_order_relaxed);
    }
    return state == 1;
}

int64_t getTimeNs() {
    int64_t t;
    if (!hasMonotonicClock() || !readMonotonicNs(&t)) t = emulateMonotonicTimeNs(readWallClockNs());
    return ensureNonDescendingTimeNs(t);
}

int64_t getTimeNsForTracing() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000000000LL + now.tv_nsec;
}

int64_t ensureNonDescendingTimeNs(int64_t t) {
    int64_t last = ourLastTimeNs.load();
    if (last >= t) return last;
    int64_t seen = last;
    if (ourLastTimeNs.compare_exchange_strong(seen, t)) return t;
    // Another thread moved it forward meanwhile: `seen` holds its value. It
    // only ever grows, so a smaller value means the store is broken.
    KZT_ASSERT(seen >= last);
    return seen;
}

// Only the wall clock's steps count: forward at most three minutes, back as 1 ns.
int64_t emulateMonotonicTimeNs(int64_t t) {
    if (!ourEmulationStarted) {
        ourEmulationStarted = true;
        ourLastRawTimeNs = t;
        return ourEmulatedTimeNs;
    }
    int64_t step = t - ourLastRawTimeNs;
    if (step < 1) step = 1;
    if (step > MAX_EMULATED_STEP_NS) step = MAX_EMULATED_STEP_NS;
    ourEmulatedTimeNs += step;
    ourLastRawTimeNs = t;
    return ourEmulatedTimeNs;
}

ZString getTimeNsInfo() {
    return hasMonotonicClock() ? ZString("monotonic") : ZString("warning: non-monotonic");
}

int64_t getCurrentTimeMs() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    return (int64_t)now.tv_sec * 1000 + now.tv_usec / 1000;
}

ZString getCurrentDateAsYYYYMMDD() {
    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    ZString result;
    result.append(ZString::formatLong(local.tm_year + 1900, 4, "0"));
    result.append(ZString::formatLong(local.tm_mon + 1, 2, "0"));
    result.append(ZString::formatLong(local.tm_mday, 2, "0"));
    return result;
}

ZString getCurrentDateTimeVerbose() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    time_t seconds = now.tv_sec;
    struct tm local;
    localtime_r(&seconds, &local);
    ZString result(40);
    result.append(ZString::formatLong(local.tm_year + 1900, 4, "0")).appendChar('-');
    result.append(ZString::formatLong(local.tm_mon + 1, 2, "0")).appendChar('-');
    result.append(ZString::formatLong(local.tm_mday, 2, "0")).appendChar(' ');
    result.append(ZString::formatLong(local.tm_hour, 2, "0")).appendChar(':');
    result.append(ZString::formatLong(local.tm_min, 2, "0")).appendChar(':');
    result.append(ZString::formatLong(local.tm_sec, 2, "0")).appendChar('.');
    result.append(ZString::formatLong(now.tv_usec / 1000, 3, "0"));
    return result;
}

void z_sleep_ms(int ms) {
    if (ms <= 0) return;
    struct timespec remaining;
    remaining.tv_sec = ms / 1000;
    remaining.tv_nsec = (long)(ms % 1000) * 1000000L;
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}
