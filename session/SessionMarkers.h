// Session markers: every profiled JVM of the machine, and the tools there,
// find each other through one System V shared memory table with a slot per
// process (its pid, port, role bits and session name), guarded by an
// inter-process mutex that survives the death of its holder. A table that
// cannot be attached makes every operation here do nothing.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "foundation/ZString.h"
#include "foundation/ZVector.h"

const key_t SESSION_MARKERS_KEY = 0x42341490;
const key_t SESSION_MARKERS_MUTEX_KEY = 0x42341491;
const int MARKER_SLOT_COUNT = 17929;
const int MARKER_SESSION_NAME_SIZE = 48;

// One slot, in host byte order. A pid of 0 marks a free slot.
struct SessionMarker {
    int32_t myPort;
    int32_t myMask;
    char mySessionName[MARKER_SESSION_NAME_SIZE];
    int32_t myPid;
};
static_assert(sizeof(SessionMarker) == 60, "a marker slot is 60 bytes");

// This process's marker: the port (0 for none), the role bits and the
// session name, cut to 44 bytes and "..." when it has 47 bytes or more.
void createMarker(int port, int mask, const ZString& sessionName);
// The slot of `pid`, or null. With `createIfMissing` a free slot is taken,
// from (pid & 0x7fffffff) % MARKER_SLOT_COUNT on. `segment` must be 0. The
// caller holds the markers' mutex.
SessionMarker* findMarkerByPid(int segment, int pid, bool createIfMissing);
// The stored name, or empty.
ZString getSessionNameFromMarker(int pid);
// The pids of the markers that share a bit with `mask`, each once.
void fillMarked(int mask, ZVector<int>& pids);
// The same, with the whole slot of each.
void fillMarkedSessions(int mask, ZVector<SessionMarker>& markers);
// The ports from..to that no live marker holds; with `checkMarkers` false,
// all of them.
void fillFreePorts(ZVector<int>& ports, int from, int to, bool checkMarkers = true);

// Tests use tables of their own so that they do not meet the machine's.
void useSessionMarkerKeysForTests(key_t markersKey, key_t mutexKey);
