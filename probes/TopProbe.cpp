#include "probes/TopProbe.h"

#include "services/AgentState.h"

bool TopProbe::areAutoProbesActive() {
    uint64_t status = ourStatus.get();
    if ((status & CPU_PROFILING_BIT) == 0) return false;
    return (status & CPU_PROFILING_MASK) != CPU_CALL_COUNTING;
}

bool TopProbe::isOff() const {
    return myActivityMode == PROBE_ACTIVITY_MODE_OFF ||
           (myActivityMode == PROBE_ACTIVITY_MODE_AUTO && !areAutoProbesActive());
}
