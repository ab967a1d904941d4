#include "recording/ThreadInfo.h"

#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "db/DB.h"
#include "db/ThreadFrameIndex.h"
#include "db/StringPool.h"
#include "foundation/System.h"
#include "foundation/UptimeProvider.h"
#include "recording/EventEncoding.h"

ZSet<ThreadInfo*>& ourAllThreadInfos = *new ZSet<ThreadInfo*>(64);
ZMap<int, ThreadInfo*>& ThreadInfo::ourTRN2ThreadInfo = *new ZMap<int, ThreadInfo*>(128);
int ThreadInfo::ourRunningNumber = 0;
IndexPool& ThreadInfo::ourIndexForTFIPool = *new IndexPool(1);
int64_t ThreadInfo::ourCreatedObjectCountInDeadThreads = 0;
int64_t ThreadInfo::ourCreatedObjectSizeInDeadThreads = 0;

ThreadInfo::ThreadInfo(const LockHolder& lock, const ZString& name, const ZString& group, int64_t nativeThreadId,
                       int64_t secondId, jobject threadReference, bool daemon)
    : myPendingLine(0), mySeenTracingGeneration(-1), myStackKnown(false), myMonitorEventRow(0), myNodeTree(nullptr),
      myStackCapture(nullptr),
      myNodeToFrame(nullptr), myEventBuffer(nullptr), myEventWriteIndex(0), myEventReadIndex(0),
      myTextStore(nullptr), myTextStoreUsed(0),
      myNativeThreadId(nativeThreadId), myThreadReference(threadReference), myThreadRow(0), myTFIIndex(0), myTRN(0),
      myLastSampleFrame(-1), myLastStateFrame(-1), myLastStateCpuTime(-1), myLastStateUptime(-1), mySkipCounter(0),
      myCreatedObjectCount(0), myCreatedObjectSize(0), myAgentThread(false), myExcludedFromTracing(false),
      myExcludedFromSampling(false), myNameKnown(false), myDaemon(daemon), myGroupName(group), myTouched(false),
      myNameStrId(-1), myPendingExceptionClass(-1), myPendingThrowNode(-1), myCurrentFrame(-1),
      myLastExceptionId(0), myLastExceptionRow(0), myLastWallSampleTime(0), myLastCpuSampleTime(0),
      myCachedRecordFrame(-1), myCachedRecord(nullptr), myCallCache(nullptr), myChildFrameCache(nullptr) {
    DB* db = KZT_DB();
    // Java code reaches the pending line through this address.
    KZT_ASSERT(((uintptr_t)this & 3) == 0);
    ThreadTable* table = db->getThreadTable();
    myThreadRow = table->nextIndex();
    myTFIIndex = ourIndexForTFIPool.nextIndex();
    myTRN = ++ourRunningNumber;
    ourTRN2ThreadInfo.put(myTRN, this);
    if (!name.isEmpty()) {
        setThreadName(name);
        myNameKnown = true;
    }
    ThreadRecord* record = table->getPtr(myThreadRow, true);
    *record = ThreadRecord();
    record->myGroup = StringPool::getStrID(lock, group);
    record->myDaemon = daemon ? 1 : 0;
    record->mySecondThreadId = secondId;
    record->myStartUptime = nativeThreadId != 0 ? ourUptimeProvider.getUptimeNs() : 0;
    record->myTFIIndex = myTFIIndex;
    record->myTRN = myTRN;
    record->myStamp = db->getCurrentGeneration();
}

ThreadInfo::~ThreadInfo() {
    ourTRN2ThreadInfo.remove(myTRN);
    ourCreatedObjectCountInDeadThreads += myCreatedObjectCount;
    ourCreatedObjectSizeInDeadThreads += myCreatedObjectSize;
    delete[] myEventBuffer;
    delete[] myTextStore;
    delete[] myCallCache;
    delete[] myChildFrameCache;
    delete myStackCapture;
    delete myNodeTree;
    delete myNodeToFrame;
}

ThreadInfo* ThreadInfo::findByTRN(int trn) {
    return ourTRN2ThreadInfo.get(trn, nullptr);
}

ZNodeTree* ThreadInfo::getNodeTree() {
    if (myNodeTree == nullptr) myNodeTree = new ZNodeTree();
    return myNodeTree;
}

NodeStackCapture* ThreadInfo::getStackCapture() {
    if (myStackCapture == nullptr) myStackCapture = new NodeStackCapture(getNodeTree());
    return myStackCapture;
}

int64_t ThreadInfo::getThreadCpuTimeNs() const {
    if (myNativeThreadId != 0) {
        int64_t time = ::getThreadCpuTimeNs(myNativeThreadId);
        if (time >= 0) return time;
    }
    // Threads found on attach have no native id: the JVM knows their clock.
    jlong time = 0;
    if (myThreadReference != nullptr && ourJVMTI != nullptr &&
        ourJVMTI->GetThreadCpuTime((jthread)myThreadReference, &time) == JVMTI_ERROR_NONE) {
        return time;
    }
    return getProcessCpuTimeNs(false);
}

// ---- Names ----

void ThreadInfo::setThreadName(const ZString& name) {
    myName = name;
    myNameStrId = -1;
    myAgentThread = name.startsWith(AGENT_THREAD_PREFIX);
    myExcludedFromTracing = myAgentThread || name.startsWith("KZT-Process-Exit-Listener");
    myExcludedFromSampling = name.startsWith(ASYNC_SAMPLING_THREAD_NAME) || name.startsWith(SAMPLER_THREAD_NAME) ||
                             name.startsWith(OOME_DETECTOR_THREAD_NAME);
}

void ThreadInfo::retrieveThreadNameJava(JNIEnv* env, jobject thread, ZString* name, ZString* group, bool* daemon) {
    jvmtiThreadInfo info;
    if (ourJVMTI->GetThreadInfo((jthread)thread, &info) != JVMTI_ERROR_NONE) {
        *name = ZString();
        *group = ZString();
        *daemon = false;
        return;
    }
    *name = ZString(info.name != nullptr ? info.name : "");
    *daemon = info.is_daemon == JNI_TRUE;
    *group = ZString();
    if (info.thread_group != nullptr) {
        jvmtiThreadGroupInfo groupInfo;
        if (ourJVMTI->GetThreadGroupInfo(info.thread_group, &groupInfo) == JVMTI_ERROR_NONE) {
            *group = ZString(groupInfo.name != nullptr ? groupInfo.name : "");
            deallocate(groupInfo.name);
            if (groupInfo.parent != nullptr) env->DeleteLocalRef(groupInfo.parent);
        }
        env->DeleteLocalRef(info.thread_group);
    }
    if (info.context_class_loader != nullptr) env->DeleteLocalRef(info.context_class_loader);
    deallocate(info.name);
}

void ThreadInfo::ensureThreadHasName(JNIEnv* env, jobject thread, bool force) {
    if (!force && myNameKnown) return;
    ZString name;
    ZString group;
    bool daemon = false;
    retrieveThreadNameJava(env, thread, &name, &group, &daemon);
    // Snapshots read the name from other threads under the lock.
    LockHolder lock(&ourLock, LOCK_SITE);
    myGroupName = group;
    myDaemon = daemon;
    if (!myNameKnown || !name.equals(myName)) setThreadName(name);
    myNameKnown = true;
}

void ThreadInfo::applyThreadNameToDB(const LockHolder& lock, DB* db) {
    ThreadRecord* record = db->getThreadTable()->getPtr(myThreadRow, false);
    if (record == nullptr || record->myStamp < 1) return;
    if (record->myName == myNameStrId) return;
    myNameStrId = StringPool::getStrID(lock, myName);
    if (record->myName == myNameStrId) return;
    record->myName = myNameStrId;
    record->myDaemon = myDaemon ? 1 : 0;
    record->myGroup = StringPool::getStrID(lock, myGroupName);
    record->myStamp = db->getCurrentGeneration();
}

ThreadInfo* getThreadInfoJvmti(JNIEnv* env, jobject thread) {
    if (!ourVmInitCalled) {
        jvmtiPhase phase = JVMTI_PHASE_LIVE;
        if (ourJVMTI->GetPhase(&phase) == JVMTI_ERROR_NONE && phase == JVMTI_PHASE_START) return ourVMStartThread;
    }
    void* data = nullptr;
    if (ourJVMTI->GetThreadLocalStorage((jthread)thread, &data) != JVMTI_ERROR_NONE || data == nullptr)
        return nullptr;
    ThreadInfo* info = (ThreadInfo*)data;
    info->setTouched();
    info->ensureThreadHasName(env, thread, false);
    return info;
}

// ---- Events ----

void ThreadInfo::flushEvents(bool lockNeeded) {
    LockHolder lock(lockNeeded ? &ourLock : nullptr, LOCK_SITE);
    playEvents(lock);
    myEventReadIndex = 0;
    myTextStoreUsed = 0;
    __atomic_store_n(&myEventWriteIndex, 0, __ATOMIC_RELEASE);
}

void ThreadInfo::addEvent(const int32_t* elements, int count, bool lockNeeded) {
    if (myEventBuffer == nullptr) myEventBuffer = new int32_t[EVENT_BUFFER_SIZE];
    int write = myEventWriteIndex;
    if (write + count > EVENT_BUFFER_SIZE) {
        flushEvents(lockNeeded);
        write = 0;
    }
    for (int i = 0; i < count; i++) myEventBuffer[write + i] = elements[i];
    // A player on another thread reads up to this index: the elements first.
    __atomic_store_n(&myEventWriteIndex, write + count, __ATOMIC_RELEASE);
}

char* ThreadInfo::reserveText(int length) {
    if (length < 0 || length >= TEXT_STORE_SIZE / 4) return nullptr;
    if (myTextStore == nullptr) myTextStore = new char[TEXT_STORE_SIZE];
    int size = (length + 2) & ~1;
    // A flush between the text and its event would let the next text take its place.
    if (myTextStoreUsed + size > TEXT_STORE_SIZE || myEventWriteIndex + LONGEST_EVENT_LENGTH > EVENT_BUFFER_SIZE) {
        flushEvents(true);
    }
    char* text = myTextStore + myTextStoreUsed;
    myTextStoreUsed += size;
    return text;
}

CpuProfilingRecord* ThreadInfo::getCpuProfilingRecord(const LockHolder& lock, int frame) {
    if (frame == myCachedRecordFrame) return myCachedRecord;
    DB* db = KZT_DB();
    int index = db->getThreadFrameIndex()->getTFI(lock, myTFIIndex, frame, true);
    myCachedRecord = db->getCpuProfilingTable()->getPtr(index, true);
    myCachedRecordFrame = frame;
    return myCachedRecord;
}

void ThreadInfo::resetSampleTimes() {
    myLastSampleFrame = -1;
    myLastWallSampleTime = 0;
    myLastCpuSampleTime = 0;
}

// ---- Allocation recording ----

bool ThreadInfo::countCreatedObject(int64_t size, int recordEach, int sizeLimit) {
    // Read by others without a lock for the totals: whole values only.
    __atomic_store_n(&myCreatedObjectCount, myCreatedObjectCount + 1, __ATOMIC_RELAXED);
    __atomic_store_n(&myCreatedObjectSize, myCreatedObjectSize + size, __ATOMIC_RELAXED);
    // Large objects always count, and leave the counter as it is.
    if (size >= sizeLimit) return true;
    if (recordEach == 0) return false;
    if (mySkipCounter > 0) {
        mySkipCounter--;
        return false;
    }
    mySkipCounter = recordEach - 1;
    return true;
}

static uint32_t childFrameSlot(int parent, int method) {
    return ((uint32_t)parent * 31u + (uint32_t)method) & (uint32_t)(ThreadInfo::CHILD_FRAME_CACHE_SIZE - 1);
}

int ThreadInfo::getCachedChildFrame(int parent, int method) const {
    if (myChildFrameCache == nullptr) return 0;
    const ChildFrameEntry& entry = myChildFrameCache[childFrameSlot(parent, method)];
    return entry.myParent == parent && entry.myMethod == method ? entry.myFrame : 0;
}

void ThreadInfo::putCachedChildFrame(int parent, int method, int frame) {
    if (myChildFrameCache == nullptr) {
        myChildFrameCache = new ChildFrameEntry[CHILD_FRAME_CACHE_SIZE];
        for (int i = 0; i < CHILD_FRAME_CACHE_SIZE; i++) myChildFrameCache[i] = {-1, 0, 0};
    }
    myChildFrameCache[childFrameSlot(parent, method)] = {parent, method, frame};
}
