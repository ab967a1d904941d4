// Maps from Java objects to event ids for probes: an object is known by a
// persistent id kept as its tag in an environment of its own, so that a map
// holds no reference and forgets the object when it is collected.
#pragma once

#include <jni.h>
#include <cstdint>

class JavaObjectMap {
public:
    // A new map, as the pointer Java keeps; 0 when memory ran out.
    static int64_t createObjectMap();
    static void deleteObjectMap(int64_t map);
    // The object's persistent id, given on first sight; 0 on failure.
    static int64_t objectGetID(jobject object);
    // The event id mapped to the object, or 0; an entry whose row is gone is dropped.
    static int objectMapGet(int64_t map, jobject key);
    // Maps the object to `eventId` (0 removes it); with `conditional` only
    // when the present event id is `expected`. The event id replaced, or 0.
    static int objectMapPut(int64_t map, jobject key, int eventId, bool conditional, int expected);
    static bool isLiveObjectID(int64_t id);

    // The object of that id was collected: it leaves every map.
    static void onObjectFree(int64_t tag);
    // The row of the event was deleted: its entries go when next met.
    static void removeEvent(int eventId);
};
