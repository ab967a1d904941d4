// The answers of the joints while no later stage has installed its own.
#include "instrumentation/InstrumentationJoints.h"

// Counters that nothing reads: injected code may count into them safely
// while counting support is not there. Room for the widest stripe offset.
static int64_t ourUnreadCounters[8 * 4096];

static int64_t unreadCallCounter(const LockHolder&, int) { return (int64_t)(intptr_t)ourUnreadCounters; }
static int64_t unreadAllocCounter(const LockHolder&, int, int) { return (int64_t)(intptr_t)ourUnreadCounters; }
static int defaultFactor() { return 8; }
static bool adaptiveByDefault() { return true; }
static bool noLineStores() { return false; }

ProbeJoint ourProbeJoint = {nullptr, nullptr, nullptr, nullptr};
CountingJoint ourCountingJoint = {unreadCallCounter, unreadAllocCounter, defaultFactor};
RecordingJoint ourRecordingJoint = {adaptiveByDefault, noLineStores};
