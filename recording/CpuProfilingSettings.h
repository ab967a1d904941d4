// The settings text of a CPU mode, read at each start of CPU profiling,
// with the wall-time filters made from it.
#pragma once

#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/ZString.h"

class SamplingSettings;

// `status`: the mode word being started. Returns the text in effect (empty
// for call counting, which measures no time). `text` null: the mode's file.
ZString readCpuProfilingSettingsAndReloadFilters(const LockHolder& lock, uint64_t status, const ZString* text);

// Sampling settings already read (a start of sampling reads them once, before
// the sampler starts) become the ones in effect, with their filters.
void applySamplingSettingsAndReloadFilters(const LockHolder& lock, uint64_t status, const SamplingSettings& settings);
