#include "foundation/UptimeProvider.h"

#include "foundation/Failure.h"
#include "foundation/System.h"

UptimeProvider ourUptimeProvider;

UptimeProvider::UptimeProvider() : myOriginNs(getTimeNs()) {}

int64_t UptimeProvider::getUptimeNs() const {
    return getTimeNs() - myOriginNs;
}

void UptimeProvider::correctUptimeMs(const LockHolder&, int64_t etalonMs) {
    reportMessage("Uptime correction will be performed (it's the last log entry with non-corrected timestamp)...");
    int64_t diffMs = etalonMs - getUptimeMs();
    // Uptime only ever jumps forward.
    if (diffMs > 0) myOriginNs -= diffMs * 1000000;
    ZString text("Uptime corrected: etalon=");
    text.appendLong(etalonMs).append("ms diff=").appendLong(diffMs).append("ms");
    reportMessage(text.c_str());
}
