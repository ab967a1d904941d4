#include "recording/Monitors.h"

#include "db/DB.h"
#include "foundation/System.h"
#include "foundation/UptimeProvider.h"
#include "recording/ClassNameTags.h"
#include "recording/CpuTracing.h"
#include "recording/EventEncoding.h"
#include "recording/PlayerEventAdding.h"
#include "recording/RowsByKey.h"
#include "recording/StackCapture.h"
#include "recording/TableWrapper.h"
#include "recording/ThreadInfo.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"

bool Monitors::ourEmptyCallback = false;
bool Monitors::ourDisableMonitorProfilingBranch = false;
bool Monitors::ourEnableMonitorEventProbe = false;
bool Monitors::ourNoStack = false;
int64_t Monitors::ourMonitorRecordingStartNs = 0;
int64_t Monitors::ourMonitorRecordingStopNs = 0;

// The rows of each block and of each wait, when asked for.
static TableWrapper ourBlockTable("Thread block\n4\nuptime_ns\n1\nuptime_ns.end\n1\nthread\n0\nframe\n0\n");
static TableWrapper ourWaitTable("Thread wait\n4\nuptime_ns\n1\nuptime_ns.end\n1\nthread\n0\nframe\n0\n");

static int getEventTableId(bool contended) {
    return (contended ? ourBlockTable : ourWaitTable).getId();
}

// The key of a "monitor" row: waiting TRN, owner TRN, frame, class string index.
static void fillMonitorRecord(MonitorRecord& record, const RowKey& key) {
    record.myBlockedTRN = key.myTRN;
    record.myOwnerTRN = key.mySecond;
    record.myFrame = key.myThird;
    record.myMonitorClass = key.myFourth;
}
typedef RowsByKey<MonitorTable, fillMonitorRecord> MonitorRows;
static MonitorRows& ourMonitorRows = *new MonitorRows();

// The wait in progress of a thread: who owned the monitor, since when (0: none).
struct OwnerTRNAndTime {
    int32_t myOwnerTRN = 0;
    int64_t myTime = 0;
};
static ZMap<int, OwnerTRNAndTime>& ourWaitsByTRN = *new ZMap<int, OwnerTRNAndTime>(64);

static const jvmtiEvent ourMonitorEvents[] = {JVMTI_EVENT_MONITOR_CONTENDED_ENTER, JVMTI_EVENT_MONITOR_CONTENDED_ENTERED,
                                              JVMTI_EVENT_MONITOR_WAIT, JVMTI_EVENT_MONITOR_WAITED};

// ---- On the thread concerned ----

static int getTRN(JNIEnv* env, jobject thread) {
    ThreadInfo* info = getThreadInfoJvmti(env, thread);
    return info != nullptr ? info->getTRN() : 0;
}

// The TRN of the thread that holds the monitor now, 0 when nobody does.
static int getMonitorOwnerTRN(JNIEnv* env, jobject monitor) {
    jvmtiMonitorUsage usage = {};
    if (ourJVMTI->GetObjectMonitorUsage(monitor, &usage) != JVMTI_ERROR_NONE) return 0;
    int owner = usage.owner != nullptr ? getTRN(env, usage.owner) : 0;
    if (usage.owner != nullptr) env->DeleteLocalRef(usage.owner);
    for (int i = 0; i < usage.waiter_count; i++) env->DeleteLocalRef(usage.waiters[i]);
    for (int i = 0; i < usage.notify_waiter_count; i++) env->DeleteLocalRef(usage.notify_waiters[i]);
    deallocate(usage.waiters);
    deallocate(usage.notify_waiters);
    return owner;
}

// The monitor object's own tag is its class's name index: one read per event.
static int getMonitorClassNameStrID(JNIEnv* env, jobject monitor) {
    jvmtiEnv* tags = ourJVMTI_MonitorProfiling;
    jlong tag = 0;
    check_JVMTI_error(tags->GetTag(monitor, &tag));
    if (tag > 0) return (int)tag;
    int id = getTaggedObjectClassNameStrID(tags, env, monitor);
    if (id > 0) check_JVMTI_error(tags->SetTag(monitor, id));
    return id;
}

// The thread's record when monitor events are wanted from it now.
static ThreadInfo* getRecordingThread(JNIEnv* env) {
    if ((ourStatus.get() & MONITORS_BIT) == 0 || Monitors::ourEmptyCallback || ourVmDeathCalled || !ourVmInitCalled)
        return nullptr;
    return getThreadInfoJvmti(env, nullptr);
}

static int getNode(JNIEnv* env, ThreadInfo* thread) {
    return thread->getStackCapture()->fillCurrentNodeJvmti_notForTracing_withOwnLine(env);
}

void Monitors::monitorEnterImpl(JNIEnv* env, jobject object, bool contended) {
    ThreadInfo* thread = getRecordingThread(env);
    if (thread == nullptr) return;
    if (ourEnableMonitorEventProbe) {
        int table = getEventTableId(contended);
        thread->setMonitorEventRow(table > 0 ? PlayerEventAdding::createTableRow(env, table) : 0);
    }
    if (ourDisableMonitorProfilingBranch) return;
    // The owner of a monitor in Object.wait is the waiting thread itself.
    int owner = contended ? getMonitorOwnerTRN(env, object) : thread->getTRN();
    // The owner has gone: no wait took place.
    if (owner == 0) return;
    int classStr = getMonitorClassNameStrID(env, object);
    int node = ourNoStack ? 1 : getNode(env, thread);
    int64_t time = getTimeNs();
    int32_t event[6] = {EVENT_MONITOR_ENTER_BEGIN, classStr, node, lowHalf(time), highHalf(time), owner};
    CpuTracingPseudoLock::addOwnEvent(thread, event, 6);
}

void Monitors::monitorEnteredImpl(JNIEnv* env, jobject object, bool contended) {
    ThreadInfo* thread = getRecordingThread(env);
    if (thread == nullptr) return;
    int row = thread->getMonitorEventRow();
    if (ourEnableMonitorEventProbe && row != 0) {
        thread->setMonitorEventRow(0);
        PlayerEventAdding::closeTableRow(env, getEventTableId(contended), row, false, nullptr);
    }
    if (ourDisableMonitorProfilingBranch) return;
    int64_t time = getTimeNs();
    int classStr = getMonitorClassNameStrID(env, object);
    // The end's stack is walked also without stacks: the row's frame is 1 then anyway.
    int node = getNode(env, thread);
    int32_t event[5] = {EVENT_MONITOR_ENTER_END, classStr, node, lowHalf(time), highHalf(time)};
    CpuTracingPseudoLock::addOwnEvent(thread, event, 5);
}

// ---- Mode control ----

static void setMonitorEvents(jvmtiEventMode mode) {
    for (jvmtiEvent event : ourMonitorEvents) check_JVMTI_error(ourJVMTI->SetEventNotificationMode(mode, event, nullptr));
}

ZString Monitors::startMonitorProfiling(JNIEnv* env) {
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        if ((ourStatus.get() & MONITORS_BIT) != 0) {
            Logger::message("Cannot start monitor profiling: Already started");
            return ZString("Already started");
        }
        ourEmptyCallback = ourOptions.isInternalOption("_monitors_empty_callback");
        ourDisableMonitorProfilingBranch = ourOptions.isInternalOption("_monitors_legacy_disable");
        ourNoStack = ourOptions.isInternalOption("_monitors_no_stack");
        ourEnableMonitorEventProbe = ourOptions.isInternalOption("_monitors_probe_enable");
        ourMonitorRecordingStartNs = ourUptimeProvider.getUptimeNs();
        ourStatus.add(MONITORS_BIT);
        setMonitorEvents(JVMTI_ENABLE);
    }
    Logger::message("Monitor profiling started");
    return ZString();
}

void Monitors::stopMonitorProfiling(JNIEnv* env) {
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        if ((ourStatus.get() & MONITORS_BIT) == 0) return;
        setMonitorEvents(JVMTI_DISABLE);
        ourStatus.remove(MONITORS_BIT);
        ourMonitorRecordingStopNs = ourUptimeProvider.getUptimeNs();
    }
    Logger::message("Monitor profiling stopped");
}

void Monitors::clearMonitorData(const LockHolder& lock) {
    DB* db = KZT_DB();
    // What happened before the clear goes with it.
    ThreadInfo::forEachLiveThread([&](ThreadInfo* thread) { thread->playEvents(lock); });
    ourWaitsByTRN.clear();
    ourMonitorRows.clear(lock);
    db->getMonitorTable()->clearTable();
    db->markTableCleared(TABLE_MONITOR);
    clearAllTags(ourJVMTI_MonitorProfiling);
}

void Monitors::setRecordingTimeProperties(const LockHolder& lock, int tableMask) {
    if ((tableMask & (1 << TABLE_MONITOR)) == 0 || ourMonitorRecordingStartNs == 0) return;
    bool running = (ourStatus.get() & MONITORS_BIT) != 0;
    int64_t end = running ? ourUptimeProvider.getUptimeNs() : ourMonitorRecordingStopNs;
    KZT_DB()->setLongProperty(lock, "kzt.monitor.profiling.duration.ns", end - ourMonitorRecordingStartNs);
}

// ---- Playing ----

int Monitors::getRecordIndex(const LockHolder& lock, ThreadInfo* thread, int classStr, int node, int ownerTRN) {
    if ((ourStatus.get() & MONITORS_BIT) == 0) return 0;
    int frame = ourNoStack ? 1 : thread->getFrameFromNode(lock, node);
    if (frame == 0) return 0;
    DB* db = KZT_DB();
    RowKey key = {thread->getTRN(), ownerTRN, frame, classStr};
    return ourMonitorRows.getOrCreate(lock, db->getMonitorTable(), key, db->getCurrentGeneration());
}

void Monitors::playMonitorEnterBegin(const LockHolder& lock, ThreadInfo* thread, int classStr, int node,
                                     int64_t time, int ownerTRN) {
    if (getRecordIndex(lock, thread, classStr, node, ownerTRN) == 0) return;
    ourWaitsByTRN.put(thread->getTRN(), {ownerTRN, time});
}

void Monitors::playMonitorEnterEnd(const LockHolder& lock, ThreadInfo* thread, int classStr, int node,
                                   int64_t time) {
    OwnerTRNAndTime* wait = ourWaitsByTRN.getPtr(thread->getTRN());
    if (wait == nullptr || wait->myTime == 0) return;
    OwnerTRNAndTime begin = *wait;
    wait->myTime = 0;
    // Charged to the stack at the end of the wait.
    int index = getRecordIndex(lock, thread, classStr, node, begin.myOwnerTRN);
    if (index == 0) return;
    DB* db = KZT_DB();
    MonitorRecord* record = db->getMonitorTable()->getPtr(index, true);
    int64_t duration = time - begin.myTime;
    record->myTime += duration > 0 ? duration : 0;
    record->myCount++;
    record->myStamp = db->getCurrentGeneration();
}

void Monitors::mergeMonitorUsage(const LockHolder& lock, const ZSet<int>& trns) {
    DB* db = KZT_DB();
    for (int slot = 0; slot < trns.getCapacity(); slot++) {
        if (trns.isFull(slot)) ourWaitsByTRN.remove(trns.keyAt(slot));
    }
    ourMonitorRows.mergeThreads(lock, db->getMonitorTable(), trns, ourOldestFinishedThreads->getTRN(),
                                db->getCurrentGeneration(), [](MonitorRecord& target, const MonitorRecord& source) {
                                    target.myTime += source.myTime;
                                    target.myCount += source.myCount;
                                });
}

void Monitors::resetForTests() {
    ourEmptyCallback = false;
    ourDisableMonitorProfilingBranch = false;
    ourEnableMonitorEventProbe = false;
    ourNoStack = false;
    ourMonitorRecordingStartNs = 0;
    ourMonitorRecordingStopNs = 0;
    ourWaitsByTRN.clear();
    LockHolder lock(&ourLock, LOCK_SITE);
    ourMonitorRows.clear(lock);
}
