// The monotonic time base of the agent: time since the library was loaded.
#pragma once

#include <cstdint>

#include "foundation/ZLock.h"

class UptimeProvider {
public:
    UptimeProvider();
    int64_t getUptimeNs() const;
    int64_t getUptimeMs() const { return getUptimeNs() / 1000000; }
    // Moves uptime forward to a reference value from the in-JVM runtime; never back.
    void correctUptimeMs(const LockHolder&, int64_t etalonMs);

private:
    int64_t myOriginNs;
};

extern UptimeProvider ourUptimeProvider;
