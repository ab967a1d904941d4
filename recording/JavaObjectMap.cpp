#include "recording/JavaObjectMap.h"

#include <new>

#include "foundation/ZLock.h"
#include "foundation/ZMap.h"
#include "foundation/ZVector.h"
#include "recording/ObjectEnumerator.h"
#include "services/AgentState.h"
#include "services/Logger.h"

typedef ZMap<int64_t, int> ObjectMap;

// Maps and the mapped event ids; ids; the live ids (never filled, so that
// isLiveObjectID answers false). Never held together with the id lock, and
// never while calling into JVMTI.
static ZLock& ourJavaObjectMapLock = *new ZLock("JavaObjectMapLock");
static ZLock& ourJavaObjectMapLock2 = *new ZLock("JavaObjectMapLock2");
static ZLock& ourJavaObjectMapLock3 = *new ZLock("JavaObjectMapLock3");
static ZVector<ObjectMap*>& ourMaps = *new ZVector<ObjectMap*>();
static ZSet<int>& ourAllMappedEventIDs = *new ZSet<int>(1024);
static ZSet<int64_t>& ourLiveObjectIDs = *new ZSet<int64_t>(1024);
static int64_t ourLastObjectID = 0;

int64_t JavaObjectMap::createObjectMap() {
    try {
        LockHolder lock(&ourJavaObjectMapLock, LOCK_SITE);
        ObjectMap* map = new ObjectMap(10);
        ourMaps.push(map);
        return (int64_t)(intptr_t)map;
    } catch (std::bad_alloc&) {
        Logger::exceptionCaught(__FILE__, __LINE__);
        return 0;
    }
}

void JavaObjectMap::deleteObjectMap(int64_t handle) {
    if (handle == 0) return;
    ObjectMap* map = (ObjectMap*)(intptr_t)handle;
    LockHolder lock(&ourJavaObjectMapLock, LOCK_SITE);
    int at = ourMaps.indexOf(map);
    if (at < 0) return;
    ourMaps.remove(at);
    for (int i = 0; i < map->getCapacity(); i++) {
        if (map->isFull(i)) ourAllMappedEventIDs.remove(map->valueAt(i));
    }
    delete map;
}

int64_t JavaObjectMap::objectGetID(jobject object) {
    if (object == nullptr || ourJVMTI_PersistentObjectIDs == nullptr) return 0;
    int64_t id = 0;
    {
        LockHolder lock(&ourJavaObjectMapLock2, LOCK_SITE);
        jlong tag = 0;
        if (ourJVMTI_PersistentObjectIDs->GetTag(object, &tag) != JVMTI_ERROR_NONE) return 0;
        if (tag != 0) return tag;
        id = ++ourLastObjectID;
        if (ourJVMTI_PersistentObjectIDs->SetTag(object, id) != JVMTI_ERROR_NONE) return 0;
    }
    ourObjectEnumerator.setObjectID(object, (int)id);
    return id;
}

// The map's event id of the object id, or 0; an entry whose row is gone goes.
static int liveEntry(ObjectMap* map, int64_t id) {
    int eventId = map->get(id, 0);
    if (eventId != 0 && !ourAllMappedEventIDs.contains(eventId)) {
        map->remove(id);
        return 0;
    }
    return eventId;
}

int JavaObjectMap::objectMapGet(int64_t handle, jobject key) {
    if (handle == 0) return 0;
    int64_t id = objectGetID(key);
    if (id == 0) return 0;
    LockHolder lock(&ourJavaObjectMapLock, LOCK_SITE);
    return liveEntry((ObjectMap*)(intptr_t)handle, id);
}

int JavaObjectMap::objectMapPut(int64_t handle, jobject key, int eventId, bool conditional, int expected) {
    if (handle == 0) return 0;
    int64_t id = objectGetID(key);
    if (id == 0) return 0;
    ObjectMap* map = (ObjectMap*)(intptr_t)handle;
    LockHolder lock(&ourJavaObjectMapLock, LOCK_SITE);
    int replaced = conditional ? liveEntry(map, id) : map->get(id, 0);
    if (conditional && replaced != expected) return replaced;
    if (eventId != 0) {
        try {
            map->put(id, eventId);
            ourAllMappedEventIDs.add(eventId);
        } catch (std::bad_alloc&) {
            Logger::exceptionCaught(__FILE__, __LINE__);
        }
    } else {
        map->remove(id);
    }
    if (replaced == 0) return 0;
    ourAllMappedEventIDs.remove(replaced);
    return replaced;
}

bool JavaObjectMap::isLiveObjectID(int64_t id) {
    LockHolder lock(&ourJavaObjectMapLock3, LOCK_SITE);
    return ourLiveObjectIDs.getSize() > 0 && ourLiveObjectIDs.contains(id);
}

void JavaObjectMap::onObjectFree(int64_t tag) {
    LockHolder lock(&ourJavaObjectMapLock, LOCK_SITE);
    for (ObjectMap* map : ourMaps) map->remove(tag);
}

void JavaObjectMap::removeEvent(int eventId) {
    if (eventId == 0) return;
    LockHolder lock(&ourJavaObjectMapLock, LOCK_SITE);
    ourAllMappedEventIDs.remove(eventId);
}
