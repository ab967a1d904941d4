// The player: turns a thread's event stream into rows. Method events walk
// the shared frame tree with a stack of start times and add time and
// invocations to the thread's CpuProfilingRecords. Disorder in the stream
// costs the thread its current stack, with a warning, never more.
#include "services/Logger.h"
#include "services/Options.h"
#include "db/DB.h"
#include "db/ThreadFrameIndex.h"
#include "recording/CpuTracing.h"
#include "recording/EventEncoding.h"
#include "recording/Exceptions.h"
#include "recording/Monitors.h"
#include "recording/ThreadInfo.h"
#include "recording/TracingSettings.h"

ThreadInfo::ForeignEventPlayer ThreadInfo::ourForeignEventPlayers[14] = {};

static bool isTracingDebug() {
    static int debug = -1;
    if (debug < 0) debug = ourOptions.isDebug("tracing") ? 1 : 0;
    return debug == 1;
}

static ZString methodText(const char* prefix, int method) {
    ZString text(prefix);
    text.appendLong(method);
    return text;
}

static void stampRecord(CpuProfilingRecord* record) {
    record->myStamp = ourDB->getCurrentGeneration();
}

static void deleteStringOfEvent(const int32_t* event, int at) {
    int64_t text = joinHalves(event[at], event[at + 1]);
    if (!isStoredText(text)) delete (ZString*)(intptr_t)text;
}

void ThreadInfo::playEvents(const LockHolder& lock) {
    int end = __atomic_load_n(&myEventWriteIndex, __ATOMIC_ACQUIRE);
    while (myEventReadIndex < end) {
        const int32_t* event = myEventBuffer + myEventReadIndex;
        int id = event[0];
        int length = getEventLength(id);
        if (length == 0) {
            ZString text("unexpected eventId: ");
            text.appendLong(id);
            Logger::error(text, __FILE__, __LINE__);
        }
        myEventReadIndex += length;
        switch (id) {
            case EVENT_METHOD_ENTER_WITH_STACK:
                playMethodEnter1(lock, event[1], joinHalves(event[2], event[3]), joinHalves(event[4], event[5]),
                                 event[6]);
                break;
            case EVENT_METHOD_ENTER:
                playMethodEnter2(lock, event[1], joinHalves(event[2], event[3]), event[4], event[5]);
                break;
            case EVENT_METHOD_EXIT:
                playMethodExit(lock, event[1], joinHalves(event[2], event[3]), event[4]);
                break;
            case EVENT_EXCEPTION:
                Exceptions::playExceptionEvent(lock, this, event[1], event[2], event[3], event[4]);
                break;
            case EVENT_MONITOR_ENTER_BEGIN:
                Monitors::playMonitorEnterBegin(lock, this, event[1], event[2], joinHalves(event[3], event[4]),
                                                event[5]);
                break;
            case EVENT_MONITOR_ENTER_END:
                Monitors::playMonitorEnterEnd(lock, this, event[1], event[2], joinHalves(event[3], event[4]));
                break;
            case EVENT_ALLOCATION:
                playAllocation(lock, joinHalves(event[1], event[2]), event[3]);
                break;
            default:
                if (ourForeignEventPlayers[id] != nullptr) ourForeignEventPlayers[id](lock, this, event);
                // The strings of these events belong to the buffer.
                if (id == EVENT_TABLE_ROW_CLOSE) deleteStringOfEvent(event, 5);
                if (id == EVENT_TABLE_SET_STRING) deleteStringOfEvent(event, 4);
                break;
        }
    }
    if (myCurrentFrame == -1) {
        // The next method event of the thread sends its whole stack.
        myPendingLine = 0;
        myStackKnown = false;
    }
}

int ThreadInfo::getFrameFromNode(const LockHolder& lock, int node) {
    if (node == 0) return 0;
    if (myNodeToFrame == nullptr) myNodeToFrame = new ZMap<int, int>(1024);
    int known = myNodeToFrame->get(node, 0);
    if (known != 0) return known;
    ZNodeTree* tree = getNodeTree();
    ZVector<int, 64> unmapped;
    int parentFrame = 0;
    for (int current = node; current != 0; current = tree->getNodeParent(current)) {
        parentFrame = myNodeToFrame->get(current, 0);
        if (parentFrame != 0) break;
        unmapped.push(current);
    }
    int frame = parentFrame;
    while (!unmapped.isEmpty()) {
        int current = unmapped.pop();
        frame = ZFrameStorage::getChild(lock, frame, tree->getNodeCodePoint(current));
        myNodeToFrame->put(current, frame);
    }
    return frame;
}

void ThreadInfo::resetStack() {
    myCurrentFrame = -1;
    myTimeStack.clear();
    myLastExceptionId = 0;
    myLastExceptionRow = 0;
    myCachedRecordFrame = -1;
}

void ThreadInfo::playMethodEnter1(const LockHolder& lock, int node, int64_t wallTime, int64_t cpuTime,
                                  int generation) {
    resetStack();
    myCurrentFrame = getFrameFromNode(lock, node);
    if (isCpuTracingActive()) pushStartTimes(lock, wallTime, cpuTime);
    if (generation != ourCpuTracingGeneration) return;
    // The frame's time counts from its first exit; only the call counts here.
    CpuProfilingRecord* record = getCpuProfilingRecord(lock, myCurrentFrame);
    record->myInvocations++;
    stampRecord(record);
}

void ThreadInfo::playMethodEnter2(const LockHolder& lock, int method, int64_t time, int generation, int line) {
    if (generation != ourCpuTracingGeneration) {
        resetStack();
        ZString text = methodText("warning: p_m_enter: 1: ", method);
        text.append(" event_gen: ").appendLong(generation).append(" current: ").appendLong(ourCpuTracingGeneration);
        Logger::message(text);
    }
    if (myCurrentFrame == -1) {
        // Dropped until the next event with a stack.
        resetStack();
        if (isTracingDebug()) Logger::message(methodText("warning: p_m_enter: 2: ", method));
        return;
    }
    if (myCallCache == nullptr) {
        myCallCache = new CallCacheEntry[CALL_CACHE_SIZE];
        for (int i = 0; i < CALL_CACHE_SIZE; i++) myCallCache[i] = {-2, 0, 0, 0, 0, nullptr};
    }
    uint32_t hash = (uint32_t)myCurrentFrame * 31u + (uint32_t)method * 7u + (uint32_t)line;
    CallCacheEntry& call = myCallCache[hash & (CALL_CACHE_SIZE - 1)];
    if (call.myParent != myCurrentFrame || call.myMethod != method || call.myLine != line) {
        // Frames live for the whole run: only the record needs checking later.
        call = {myCurrentFrame, method, line, ZFrameStorage::getChild(lock, myCurrentFrame, method, line), 0, nullptr};
    }
    if (call.myRecord == nullptr || call.myGeneration != ourCpuTracingGeneration) {
        call.myRecord = getCpuProfilingRecord(lock, call.myFrame);
        call.myGeneration = ourCpuTracingGeneration;
    }
    myTimeStack.push(time);
    myCurrentFrame = call.myFrame;
    myCachedRecordFrame = call.myFrame;
    myCachedRecord = call.myRecord;
    call.myRecord->myInvocations++;
    stampRecord(call.myRecord);
}

void ThreadInfo::playMethodExit(const LockHolder& lock, int method, int64_t time, int generation) {
    if (generation != ourCpuTracingGeneration) {
        resetStack();
        ZString text = methodText("warning: p_m_exit: 1: ", method);
        text.append(" event_gen: ").appendLong(generation).append(" current: ").appendLong(ourCpuTracingGeneration);
        Logger::message(text);
        return;
    }
    if (myCurrentFrame == -1) {
        resetStack();
        if (isTracingDebug()) Logger::message(methodText("warning: p_m_exit: 2: ", method));
        return;
    }
    int frame = myCurrentFrame;
    const FrameRecord* frameRecord;
    for (;;) {
        frameRecord = ourFrameTable->getPtr(frame, true);
        int frameMethod = CodePointStorage::getMethod(frameRecord->myCodePoint);
        if (frameMethod == method) break;
        if ((ZMethod::getFlags(frameMethod) & METHOD_FLAG_EXCLUDED) == 0) {
            // The stream and the tree disagree: close what is open, start over.
            resetStackTrace(lock, false);
            resetStack();
            ZString text = methodText("warning: p_m_exit: 3_2: ", method);
            text.append(" expected: ").appendLong(frameMethod);
            Logger::message(text);
            return;
        }
        // Excluded while it ran: it sends no exit, its caller's exit skips it.
        if (isTracingDebug()) {
            ZString text = methodText("p_m_exit: 3: ", method);
            text.append(" skipping excluded: ").appendLong(frameMethod);
            Logger::message(text);
        }
        int sizeBefore = myTimeStack.getSize();
        myTimeStack.pop();
        int parent = frameRecord->myParent;
        myCurrentFrame = parent;
        if (parent < 1 || sizeBefore == 1) {
            resetStack();
            ZString text = methodText("warning: p_m_exit: 3_1: ", method);
            text.append(" _frame=").appendLong(parent).append(" size1=").appendLong(myTimeStack.getSize());
            Logger::message(text);
            return;
        }
        frame = parent;
    }
    myCurrentFrame = frameRecord->myParent;
    if (myTimeStack.isEmpty()) {
        resetStack();
        ZString text = methodText("warning: p_m_exit: 4: ", method);
        text.appendChar(' ').appendLong(frame).append("->").appendLong(myCurrentFrame).append(" name=").append(myName);
        Logger::message(text);
        return;
    }
    CpuProfilingRecord* record = getCpuProfilingRecord(lock, frame);
    int64_t start = myTimeStack.pop();
    int64_t delta = CpuTracing::getTimeDeltaNs(time, start, 1);
    record->myTime += delta;
    stampRecord(record);
    if (ourTracingSettings.myAdaptive) adaptiveFilter(lock, method, delta);
}

void ThreadInfo::playAllocation(const LockHolder& lock, int64_t size, int nodeOrFrame) {
    int frame = nodeOrFrame >= 0 ? getFrameFromNode(lock, nodeOrFrame) : -nodeOrFrame;
    DB* db = KZT_DB();
    int index = db->getThreadFrameIndex()->getTFI(lock, myTFIIndex, frame, true);
    AllocInfoRecord* record = db->getAllocInfoTable()->getPtr(index, true);
    record->myObjectCount++;
    record->mySize += size;
    record->myStamp = db->getCurrentGeneration();
}
