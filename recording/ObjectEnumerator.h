// The side table of objects recorded with a stack: each gets a tag in the
// main JVMTI environment, and the tag is the index of its JavaObjectInfo,
// which knows when, on which thread and at which place the object was
// made. When the object dies (ObjectFree) its age is summed under its
// place, and the sums go into the "alloc_info" rows. Memory snapshots read
// the same records to tell each object's allocation site.
//
// The enumerator has a lock of its own, because ObjectFree comes at any
// moment and must not wait for ourLock. The order is ourLock first, then
// the enumerator's lock; nothing takes them the other way.
#pragma once

#include <jni.h>
#include <cstdint>

#include "foundation/IndexPool.h"
#include "foundation/ZIntChunkMap.h"
#include "foundation/ZLock.h"
#include "foundation/ZMap.h"

class ThreadInfo;

struct JavaObjectInfo {
    int64_t myTime = 0;          // uptime in ms at allocation; 0: the age is not wanted
    int32_t myTRN = 0;           // the allocating thread
    int32_t myNodeOrFrame = 0;   // at least 0: a node of the thread's tree; negative: minus a frame
    int32_t myObjectIndex = 0;   // the dense index of a memory snapshot in the making
    int32_t myObjectID = 0;      // the persistent id of the object maps, 0 for none
    bool myUsed = false;
};

class ObjectEnumerator {
public:
    ObjectEnumerator();
    ObjectEnumerator(const ObjectEnumerator&) = delete;
    ObjectEnumerator& operator=(const ObjectEnumerator&) = delete;

    // Gives the new object a tag and its record. A failed SetTag is logged;
    // the record goes back, and the caller's event stands.
    void createObjectAllocator(jobject object, const ThreadInfo* thread, int nodeOrFrame);
    // From the ObjectFree event, with the low half of the tag. Below 1: not ours.
    void onObjectFree(int tag);

    // The ages of objects that died, into "alloc_info". Under ourLock; takes
    // the enumerator's lock.
    void flushCollectedObjectAgesToDB(const LockHolder& lock);
    // At the end of a thread: its ages go into the tables, and its live
    // objects name frames instead of nodes, as its node tree is about to go.
    void flushObjectAllocationDataForThread(const LockHolder& lock, ThreadInfo* thread);
    // A clear of allocation data: ages pending and ages of objects alive now
    // belong to the cleared data and are not counted any more.
    void forgetAges(const LockHolder& lock);
    // Recording ran at least once: from then on thread ends flush.
    void setRecordingStarted() { myRecordingStarted = true; }

    // ---- For memory snapshots ----
    // A copy of the record of a used tag; false for a tag not in use.
    bool getJavaObjectInfo(int tag, JavaObjectInfo* info);
    void setObjectIndex(int tag, int index);
    // Drops the dense indices of the last memory snapshot.
    void clearAllocators();
    // For the object maps: the persistent id of an object recorded here.
    void setObjectID(jobject object, int id);

    // Tags in use, for tests and statistics.
    int getUsedCount();
    // Forgets everything, for tests.
    void resetForTests();

private:
    void flushCollectedObjectAgesToDBImpl(const LockHolder& lock);
    void releaseTag(int tag);

    ZLock myLock;
    IndexPool myTags;
    int32_t myHighestTag;
    ZIntChunkMap3<JavaObjectInfo> myInfos;
    int64_t myFlushCount;
    // (TRN in the high half, node or frame in the low half) -> summed age in ms.
    ZMap<long, long> myAges;
    // Live objects by TRN that name a node: only their threads need the walk at thread end.
    ZMap<int, int> myNodeObjectsByTRN;
    bool myRecordingStarted;
};

extern ObjectEnumerator& ourObjectEnumerator;
