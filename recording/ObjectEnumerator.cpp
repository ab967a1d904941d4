#include "recording/ObjectEnumerator.h"

#include "db/DB.h"
#include "db/ThreadFrameIndex.h"
#include "foundation/UptimeProvider.h"
#include "recording/ThreadInfo.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

ObjectEnumerator& ourObjectEnumerator = *new ObjectEnumerator();

ObjectEnumerator::ObjectEnumerator()
    : myLock("ObjectEnumeratorLock"), myTags(1), myHighestTag(0), myInfos(JavaObjectInfo()), myFlushCount(0),
      myAges(4096), myNodeObjectsByTRN(128), myRecordingStarted(false) {}

static long ageKey(int trn, int nodeOrFrame) {
    return (long)(((uint64_t)(uint32_t)trn << 32) | (uint32_t)nodeOrFrame);
}

void ObjectEnumerator::createObjectAllocator(jobject object, const ThreadInfo* thread, int nodeOrFrame) {
    int tag;
    {
        LockHolder mine(&myLock, LOCK_SITE);
        tag = myTags.nextIndex();
        if (tag > myHighestTag) myHighestTag = tag;
        JavaObjectInfo* info = myInfos.getPtr(tag);
        *info = JavaObjectInfo();
        info->myTime = ourUptimeProvider.getUptimeMs();
        info->myTRN = thread->getTRN();
        info->myNodeOrFrame = nodeOrFrame;
        info->myUsed = true;
        if (nodeOrFrame >= 0) myNodeObjectsByTRN.put(info->myTRN, myNodeObjectsByTRN.get(info->myTRN, 0) + 1);
    }
    jvmtiError error = ourJVMTI->SetTag(object, (jlong)tag);
    if (error == JVMTI_ERROR_NONE) return;
    Logger::message(ZString("warning: ObjectEnumerator::createObjectAllocator: SetTag returned ") +
                    getJvmtiErrorName(ourJVMTI, error));
    // No object carries the tag: nothing would ever free it.
    LockHolder mine(&myLock, LOCK_SITE);
    releaseTag(tag);
}

// Under the enumerator's lock.
void ObjectEnumerator::releaseTag(int tag) {
    JavaObjectInfo* info = myInfos.getPtr(tag);
    if (info->myNodeOrFrame >= 0) {
        int* count = myNodeObjectsByTRN.getPtr(info->myTRN);
        if (count != nullptr && --*count <= 0) myNodeObjectsByTRN.remove(info->myTRN);
    }
    info->myUsed = false;
    myTags.releaseIndex(tag);
}

void ObjectEnumerator::onObjectFree(int tag) {
    if (tag < 1) return;
    LockHolder mine(&myLock, LOCK_SITE);
    JavaObjectInfo* info = tag <= myHighestTag ? myInfos.getPtr(tag) : nullptr;
    if (info == nullptr || !info->myUsed) {
        // Never released: the tag may belong to a live record or to none.
        Logger::message(ZString("warning: ObjectEnumerator::onObjectFree: unknown pureTag ") + ZString::fromLong(tag));
        return;
    }
    if (info->myTime > 0) {
        long key = ageKey(info->myTRN, info->myNodeOrFrame);
        long* sum = myAges.getPtr(key);
        long age = (long)(ourUptimeProvider.getUptimeMs() - info->myTime);
        if (sum != nullptr) *sum += age;
        else myAges.put(key, age);
    }
    releaseTag(tag);
}

void ObjectEnumerator::flushCollectedObjectAgesToDB(const LockHolder& lock) {
    LockHolder mine(&myLock, LOCK_SITE);
    flushCollectedObjectAgesToDBImpl(lock);
}

void ObjectEnumerator::flushCollectedObjectAgesToDBImpl(const LockHolder& lock) {
    if (myAges.getSize() == 0) return;
    DB* db = KZT_DB();
    int generation = db->getCurrentGeneration();
    for (int slot = 0; slot < myAges.getCapacity(); slot++) {
        if (!myAges.isFull(slot)) continue;
        long key = myAges.keyAt(slot);
        int trn = (int)((uint64_t)key >> 32);
        int nodeOrFrame = (int)(uint32_t)key;
        ThreadInfo* thread = ThreadInfo::findByTRN(trn);
        int frame;
        if (nodeOrFrame < 0) {
            frame = -nodeOrFrame;
            // The thread ended: its dead objects are charged with the oldest finished threads.
            if (thread == nullptr) thread = ourOldestFinishedThreads;
        } else if (thread != nullptr) {
            frame = thread->getFrameFromNode(lock, nodeOrFrame);
        } else {
            Logger::message(ZString("warning: flushCollectedObjectAgesToDB: trn=") + ZString::fromLong(trn) +
                            " node=" + ZString::fromLong(nodeOrFrame));
            continue;
        }
        if (thread == nullptr) continue;
        int index = db->getThreadFrameIndex()->getTFI(lock, thread->getTFIIndex(), frame, true);
        AllocInfoRecord* record = db->getAllocInfoTable()->getPtr(index, true);
        record->mySummedAge += myAges.valueAt(slot);
        record->myStamp = generation;
    }
    myAges.clear();
    myFlushCount++;
}

void ObjectEnumerator::flushObjectAllocationDataForThread(const LockHolder& lock, ThreadInfo* thread) {
    if (!myRecordingStarted) return;
    int64_t startMs = ourUptimeProvider.getUptimeMs();
    LockHolder mine(&myLock, LOCK_SITE);
    flushCollectedObjectAgesToDBImpl(lock);
    int trn = thread->getTRN();
    int changed = 0;
    if (myNodeObjectsByTRN.get(trn, 0) > 0) {
        for (int tag = 1; tag <= myHighestTag; tag++) {
            JavaObjectInfo* info = myInfos.getPtr(tag);
            if (!info->myUsed || info->myTRN != trn || info->myNodeOrFrame < 0) continue;
            info->myNodeOrFrame = -thread->getFrameFromNode(lock, info->myNodeOrFrame);
            changed++;
        }
        myNodeObjectsByTRN.remove(trn);
    }
    int64_t spentMs = ourUptimeProvider.getUptimeMs() - startMs;
    if (changed > 0 || spentMs > 0) {
        Logger::message(ZString("flushObjectAllocationDataForThread: trn=") + ZString::fromLong(trn) +
                        " objects=" + ZString::fromLong(changed) + " ms=" + ZString::fromLong(spentMs));
    }
}

void ObjectEnumerator::forgetAges(const LockHolder& lock) {
    LockHolder mine(&myLock, LOCK_SITE);
    myAges.clear();
    for (int tag = 1; tag <= myHighestTag; tag++) {
        JavaObjectInfo* info = myInfos.getPtr(tag);
        if (info->myUsed) info->myTime = 0;
    }
}

bool ObjectEnumerator::getJavaObjectInfo(int tag, JavaObjectInfo* info) {
    LockHolder mine(&myLock, LOCK_SITE);
    if (tag < 1 || tag > myHighestTag) return false;
    const JavaObjectInfo* known = myInfos.getPtr(tag);
    if (!known->myUsed) return false;
    *info = *known;
    return true;
}

void ObjectEnumerator::setObjectIndex(int tag, int index) {
    LockHolder mine(&myLock, LOCK_SITE);
    if (tag < 1 || tag > myHighestTag) return;
    JavaObjectInfo* info = myInfos.getPtr(tag);
    if (info->myUsed) info->myObjectIndex = index;
}

void ObjectEnumerator::clearAllocators() {
    LockHolder mine(&myLock, LOCK_SITE);
    for (int tag = 1; tag <= myHighestTag; tag++) myInfos.getPtr(tag)->myObjectIndex = 0;
}

void ObjectEnumerator::setObjectID(jobject object, int id) {
    jlong tag = 0;
    jvmtiError error = ourJVMTI->GetTag(object, &tag);
    if (error != JVMTI_ERROR_NONE) {
        Logger::message(ZString("warning: ObjectEnumerator::setObjectID: GetTag returned ") +
                        getJvmtiErrorName(ourJVMTI, error));
        return;
    }
    int pureTag = (int)(uint32_t)(uint64_t)tag;
    // An object that allocation recording did not record (most objects that
    // the built-in probes map: streams, connections) has nothing to learn the
    // id; only a recorded one whose entry is gone tells of a fault.
    if (pureTag < 1) return;
    LockHolder mine(&myLock, LOCK_SITE);
    JavaObjectInfo* info = pureTag <= myHighestTag ? myInfos.getPtr(pureTag) : nullptr;
    if (info != nullptr && info->myUsed) {
        info->myObjectID = id;
        return;
    }
    Logger::message(ZString("warning: ObjectEnumerator::setObjectID: !myUsed for pureTag ") + ZString::fromLong(pureTag));
}

int ObjectEnumerator::getUsedCount() {
    LockHolder mine(&myLock, LOCK_SITE);
    int used = 0;
    for (int tag = 1; tag <= myHighestTag; tag++) {
        if (myInfos.getPtr(tag)->myUsed) used++;
    }
    return used;
}

void ObjectEnumerator::resetForTests() {
    LockHolder mine(&myLock, LOCK_SITE);
    for (int tag = 1; tag <= myHighestTag; tag++) *myInfos.getPtr(tag) = JavaObjectInfo();
    myTags.clearIndexPool();
    myHighestTag = 0;
    myAges.clear();
    myNodeObjectsByTRN.clear();
    myFlushCount = 0;
    myRecordingStarted = false;
}
