// What both sides of the dominator benchmark share: the peak memory of the
// process and a steady clock.
#pragma once

#include <sys/resource.h>
#include <time.h>

#include <cstdint>
#include <cstdio>

inline int64_t peakMemoryBytes() {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return (int64_t)usage.ru_maxrss * 1024;
}

inline int64_t nowNs() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000000000 + now.tv_nsec;
}

// The one line the run script reads.
inline void report(int64_t startNs) {
    printf("RESULT %lld %lld\n", (long long)((nowNs() - startNs) / 1000000), (long long)peakMemoryBytes());
}
