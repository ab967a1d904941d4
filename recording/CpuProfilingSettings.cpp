#include "recording/CpuProfilingSettings.h"

#include "recording/CpuTracing.h"
#include "recording/SamplingSettings.h"
#include "recording/TracingSettings.h"


ZString readCpuProfilingSettingsAndReloadFilters(const LockHolder& lock, uint64_t status, const ZString* text) {
    uint64_t mode = status & CPU_PROFILING_MASK;
    if (mode == CPU_CALL_COUNTING) {
        Filter::reloadFilters(lock, ZVectorSafe<ZString>());
        return ZString();
    }
    if (mode == CPU_TRACING) {
        ZString settings = getTracingSettingsText(text);
        ourTracingSettings.setFromText(settings);
        Filter::reloadFilters(lock, ourTracingSettings.myWallTimeSpecs);
        return settings;
    }
    ZString settings = getSamplingSettingsText(text);
    SamplingSettings parsed;
    parsed.setFromText(settings);
    applySamplingSettingsAndReloadFilters(lock, status, parsed);
    return settings;
}

void applySamplingSettingsAndReloadFilters(const LockHolder& lock, uint64_t status, const SamplingSettings& settings) {
    ourSamplingSettings = settings;
    // Asynchronous cpu sampling sees only threads on a CPU: no wall time.
    bool cpuOnly = (status & SAMPLING_MODE_MASK) == SAMPLING_MODE_ASYNC_CPU;
    Filter::reloadFilters(lock, cpuOnly ? ZVectorSafe<ZString>() : ourSamplingSettings.myWallTimeSpecs);
}
