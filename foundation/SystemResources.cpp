// CPU time and memory figures of the process and the machine.
#include <cstdlib>
#include <ctime>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include "foundation/System.h"

static int64_t timevalNs(const struct timeval& value) {
    return (int64_t)value.tv_sec * 1000000000LL + (int64_t)value.tv_usec * 1000;
}

static int64_t readClockNs(clockid_t clock) {
    struct timespec value;
    if (clock_gettime(clock, &value) != 0) return -1;
    return (int64_t)value.tv_sec * 1000000000LL + value.tv_nsec;
}

int64_t getCurrentThreadCpuTimeNs() {
    return readClockNs(CLOCK_THREAD_CPUTIME_ID);
}

// The thread must be alive: a pthread_t of an ended thread names nothing.
int64_t getThreadCpuTimeNs(int64_t threadId) {
    pthread_t thread = (pthread_t)threadId;
    if (pthread_equal(thread, pthread_self())) return getCurrentThreadCpuTimeNs();
    clockid_t clock;
    if (pthread_getcpuclockid(thread, &clock) != 0) return -1;
    return readClockNs(clock);
}

int64_t getProcessCpuTimeNs(bool kernelOnly) {
    struct rusage usage;
    if (getrusage(RUSAGE_SELF, &usage) != 0) return -1;
    int64_t system = timevalNs(usage.ru_stime);
    return kernelOnly ? system : system + timevalNs(usage.ru_utime);
}

int64_t getSystemCpuTimeNs(bool kernelOnly) {
    return getProcessCpuTimeNs(kernelOnly);
}

// Fields 14 and 15 of /proc/<pid>/stat, user and system time in clock ticks.
// The command name (field 2) may hold blanks, so counting starts after its ")".
int64_t getOtherProcessCpuTimeNs(int pid) {
    ZString path("/proc/");
    path.appendLong(pid).append("/stat");
    ZString text = readTextFileContentOrEmpty(path.c_str());
    int close = text.lastIndexOfChar(')');
    if (close < 0) return -1;
    ZVectorSafe<ZString> fields;
    text.substring(close + 1).split(" ", fields);
    // fields[0] is field 3 (state).
    if (fields.getSize() < 13) return -1;
    long ticksPerSecond = sysconf(_SC_CLK_TCK);
    if (ticksPerSecond <= 0) return -1;
    int64_t ticks = parseLongSafe(fields[11]) + parseLongSafe(fields[12]);
    return ticks * (1000000000LL / ticksPerSecond);
}

// Field `index` of /proc/self/statm, in pages, as bytes; -1 when unreadable.
static int64_t readStatmBytes(int index) {
    ZString text = readTextFileContentOrEmpty("/proc/self/statm");
    ZVectorSafe<ZString> fields;
    text.split(" \n", fields);
    if (fields.getSize() <= index) return -1;
    return parseLongSafe(fields[index]) * sysconf(_SC_PAGESIZE);
}

int64_t getProcessMemoryUsage() {
    return readStatmBytes(0);
}

int64_t getProcessPhysicalMemoryUsage() {
    return readStatmBytes(1);
}

int64_t getSystemPhysicalMemorySize() {
    long pages = sysconf(_SC_PHYS_PAGES);
    long pageSize = sysconf(_SC_PAGESIZE);
    if (pages < 0 || pageSize < 0) return -1;
    return (int64_t)pages * pageSize;
}

bool is64BitMachine() {
    return sizeof(void*) == 8;
}
