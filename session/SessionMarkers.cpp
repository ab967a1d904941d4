#include "session/SessionMarkers.h"

#include <cstring>
#include <mutex>

#include "foundation/Failure.h"
#include "foundation/System.h"
#include "session/InterProcessMutex.h"
#include "session/PidChecker.h"

namespace {

// The attached table and its mutex, made on first use by any operation.
struct MarkerTable {
    SessionMarker* mySlots;
    InterProcessMutex* myMutex;
};

std::mutex ourTableCreation;
MarkerTable* ourTable = nullptr;
key_t ourMarkersKey = SESSION_MARKERS_KEY;
key_t ourMutexKey = SESSION_MARKERS_MUTEX_KEY;

MarkerTable& getTable() {
    std::lock_guard<std::mutex> guard(ourTableCreation);
    if (ourTable == nullptr) {
        MarkerTable* table = new MarkerTable();
        table->mySlots = (SessionMarker*)createSharedMemoryUnix(ourMarkersKey, MARKER_SLOT_COUNT * sizeof(SessionMarker));
        table->myMutex = new InterProcessMutex(ourMutexKey);
        ourTable = table;
    }
    return *ourTable;
}

void clearSlot(SessionMarker& slot) {
    slot.myPort = 0;
    slot.myMask = 0;
    memset(slot.mySessionName, 0, 8);
    slot.myPid = 0;
}

// Slots of processes that are gone become free. The process list is read
// before the lock is taken: listing can be slow, the lock is for short work.
void removeDeadMarkers(MarkerTable& table) {
    PidChecker live;
    InterProcessMutexHolder holder(*table.myMutex);
    if (live.isEmpty()) return;
    for (int i = 0; i < MARKER_SLOT_COUNT; i++) {
        SessionMarker& slot = table.mySlots[i];
        if (slot.myPid != 0 && !live.contains(slot.myPid)) clearSlot(slot);
    }
}

// Runs `f` on the slots, under the mutex, once the slots of dead processes
// are free; does nothing without the table.
template <typename F>
void withLiveMarkers(F f) {
    MarkerTable& table = getTable();
    if (table.mySlots == nullptr) return;
    removeDeadMarkers(table);
    InterProcessMutexHolder holder(*table.myMutex);
    f(table.mySlots);
}

}  // namespace

SessionMarker* findMarkerByPid(int segment, int pid, bool createIfMissing) {
    KZT_ASSERT(segment == 0);
    SessionMarker* slots = getTable().mySlots;
    if (slots == nullptr) return nullptr;
    for (int i = 0; i < MARKER_SLOT_COUNT; i++) {
        if (slots[i].myPid == pid) return &slots[i];
    }
    if (!createIfMissing) return nullptr;
    int start = (pid & 0x7fffffff) % MARKER_SLOT_COUNT;
    for (int step = 0; step < MARKER_SLOT_COUNT; step++) {
        SessionMarker& slot = slots[(start + step) % MARKER_SLOT_COUNT];
        if (slot.myPid == 0) {
            slot.myPid = pid;
            return &slot;
        }
    }
    ZString text("warning: findMarkerByPid: no free slots in ");
    text.appendLong(segment);
    reportMessage(text.c_str());
    return nullptr;
}

void createMarker(int port, int mask, const ZString& sessionName) {
    ZString name = sessionName;
    const int limit = MARKER_SESSION_NAME_SIZE - 1;
    if (name.getLength() >= limit) name = name.substring(0, limit - 3) + "...";
    withLiveMarkers([&](SessionMarker*) {
        SessionMarker* slot = findMarkerByPid(0, z_getpid(), true);
        if (slot == nullptr) return;
        slot->myPort = port;
        memset(slot->mySessionName, 0, MARKER_SESSION_NAME_SIZE);
        memcpy(slot->mySessionName, name.c_str(), name.getLength() < limit ? name.getLength() : limit);
        slot->myMask = mask;
    });
}

ZString getSessionNameFromMarker(int pid) {
    MarkerTable& table = getTable();
    if (table.mySlots == nullptr || pid == 0) return ZString();
    InterProcessMutexHolder holder(*table.myMutex);
    SessionMarker* slot = findMarkerByPid(0, pid, false);
    if (slot == nullptr) return ZString();
    char name[MARKER_SESSION_NAME_SIZE + 1];
    memcpy(name, slot->mySessionName, MARKER_SESSION_NAME_SIZE);
    name[MARKER_SESSION_NAME_SIZE] = 0;
    return ZString(name);
}

void fillMarkedSessions(int mask, ZVector<SessionMarker>& markers) {
    withLiveMarkers([&](SessionMarker* slots) {
        for (int i = 0; i < MARKER_SLOT_COUNT; i++) {
            const SessionMarker& slot = slots[i];
            if (slot.myPid == 0 || (slot.myMask & mask) == 0) continue;
            bool seen = false;
            for (int j = 0; j < markers.getSize() && !seen; j++) seen = markers[j].myPid == slot.myPid;
            if (seen) continue;
            SessionMarker copy = slot;
            copy.mySessionName[MARKER_SESSION_NAME_SIZE - 1] = 0;
            markers.push(copy);
        }
    });
}

void fillMarked(int mask, ZVector<int>& pids) {
    ZVector<SessionMarker> markers;
    fillMarkedSessions(mask, markers);
    for (int i = 0; i < markers.getSize(); i++) pids.push(markers[i].myPid);
}

void fillFreePorts(ZVector<int>& ports, int from, int to, bool checkMarkers) {
    for (int port = from; port <= to; port++) ports.push(port);
    if (!checkMarkers) return;
    withLiveMarkers([&](SessionMarker* slots) {
        for (int i = 0; i < MARKER_SLOT_COUNT; i++) {
            const SessionMarker& slot = slots[i];
            if (slot.myPid <= 0 || slot.myPort <= 0) continue;
            int index = ports.indexOf(slot.myPort);
            if (index >= 0) ports.remove(index);
        }
    });
}

void useSessionMarkerKeysForTests(key_t markersKey, key_t mutexKey) {
    std::lock_guard<std::mutex> guard(ourTableCreation);
    ourMarkersKey = markersKey;
    ourMutexKey = mutexKey;
    ourTable = nullptr;
}
