// ThreadInfo: the agent's record of one Java thread, attached to it through
// JVMTI thread-local storage. Hot paths append small integer events to the
// thread's own buffer without a lock; the buffer is played into the tables
// under ourLock when it fills, when the thread ends, or when somebody needs
// the data (clear, stop, snapshot).
#pragma once

#include <jni.h>
#include <jvmti.h>
#include <cstdint>

#include "db/ZNodeTree.h"
#include "recording/StackCapture.h"
#include "foundation/IndexPool.h"
#include "foundation/ZLock.h"
#include "foundation/ZMap.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

struct CpuProfilingRecord;
class DB;

class ThreadInfo {
public:
    static constexpr int EVENT_BUFFER_SIZE = 10240;
    // Bytes for the texts of the events in the buffer.
    static constexpr int TEXT_STORE_SIZE = 32768;

    // Takes a "thread" row, a TFI index and the next TRN, and writes the row;
    // the name column stays 0 until applyThreadNameToDB. Needs ourDB.
    ThreadInfo(const LockHolder& lock, const ZString& name, const ZString& group, int64_t nativeThreadId,
               int64_t secondId, jobject threadReference, bool daemon);
    // Needs ourLock: leaves the registry, frees buffer and node tree.
    ~ThreadInfo();
    ThreadInfo(const ThreadInfo&) = delete;
    ThreadInfo& operator=(const ThreadInfo&) = delete;

    // ---- Tracing events, on the thread itself: no lock, no allocation ----
    // The line set by line instrumentation, taken by the next method entry.
    void setPendingLine(int line) { myPendingLine = line; }
    void onMethodEntry(JNIEnv* env, int methodId);
    void onMethodExit(JNIEnv* env, int methodId);
    // Frames were left without exits (an exception): the next method event
    // sends the whole stack again.
    void clearTracingEventWords() {
        myPendingLine = 0;
        mySeenTracingGeneration = 0;
    }
    // Appends one event. A full buffer is played first, under ourLock when
    // `lockNeeded` (the caller holds it otherwise).
    void addEvent(const int32_t* elements, int count, bool lockNeeded);
    // Room at an even address for a text of `length` bytes and its zero,
    // valid until the event that comes next, which names it, is played; null
    // for a text too long to keep there. The room and a place for that event
    // are made, when they are missing, by playing the buffer under ourLock.
    char* reserveText(int length);

    // ---- Monitor and exception events, on the thread itself ----
    int getMonitorEventRow() const { return myMonitorEventRow; }
    void setMonitorEventRow(int eventId) { myMonitorEventRow = eventId; }
    // A throw that waits for its catch: class (-1 for none) and node.
    int getPendingExceptionClass() const { return myPendingExceptionClass; }
    int getPendingThrowNode() const { return myPendingThrowNode; }
    void setPendingException(int classStr, int throwNode) {
        myPendingExceptionClass = classStr;
        myPendingThrowNode = throwNode;
    }
    // Played: the id of the last exception and its row, 0 after a stack reset.
    int getLastExceptionId() const { return myLastExceptionId; }
    int getLastExceptionRow() const { return myLastExceptionRow; }
    void setLastException(int exceptionId, int row) {
        myLastExceptionId = exceptionId;
        myLastExceptionRow = row;
    }

    // ---- Allocation recording, on the thread itself ----
    // Counts a created object of `size` bytes; true when it is to be
    // recorded: one of at least `sizeLimit` bytes always, a smaller one once
    // in `recordEach` by the thread's skip counter, never with 0.
    bool countCreatedObject(int64_t size, int recordEach, int sizeLimit);
    void resetSkipCounter() { mySkipCounter = 0; }
    int64_t getCreatedObjectCount() const { return __atomic_load_n(&myCreatedObjectCount, __ATOMIC_RELAXED); }
    int64_t getCreatedObjectSize() const { return __atomic_load_n(&myCreatedObjectSize, __ATOMIC_RELAXED); }
    static constexpr int CHILD_FRAME_CACHE_SIZE = 64;
    // Shared frames by (parent frame, method) that this thread found before,
    // 0 when not known: frames never change once made.
    int getCachedChildFrame(int parent, int method) const;
    void putCachedChildFrame(int parent, int method, int frame);

    // ---- Playing, under ourLock ----
    void playEvents(const LockHolder& lock);
    // Plays the buffer and empties it and the text store, under ourLock
    // when `lockNeeded`; by the owning thread.
    void flushEvents(bool lockNeeded);
    // The shared frame of one of this thread's nodes, made on need.
    int getFrameFromNode(const LockHolder& lock, int node);
    CpuProfilingRecord* getCpuProfilingRecord(const LockHolder& lock, int frame);
    // Open frames are closed with the present time (CPU clock of this thread
    // when `currentThread`, else read from outside); then reopened.
    void resetStackTrace(const LockHolder& lock, bool currentThread);
    void restoreStackTrace(const LockHolder& lock, bool currentThread);
    // Forgets the stack: current frame unknown, no start times.
    void resetStack();
    void resetSampleTimes();
    // Sampling: times of the last sample (0 before the first) and the frame.
    int64_t getLastWallSampleTime() const { return myLastWallSampleTime; }
    int64_t getLastCpuSampleTime() const { return myLastCpuSampleTime; }
    void setLastSampleTimes(int64_t wall, int64_t cpu) {
        myLastWallSampleTime = wall;
        myLastCpuSampleTime = cpu;
    }
    void setLastSampleFrame(int frame) { myLastSampleFrame = frame; }
    int getLastSampleFrame() const { return myLastSampleFrame; }
    // Thread-state telemetry: where the thread stood since when (-1: unknown).
    int getLastStateFrame() const { return myLastStateFrame; }
    int64_t getLastStateCpuTime() const { return myLastStateCpuTime; }
    int64_t getLastStateUptime() const { return myLastStateUptime; }
    void setLastState(int frame, int64_t cpuTime, int64_t uptime) {
        myLastStateFrame = frame;
        myLastStateCpuTime = cpuTime;
        myLastStateUptime = uptime;
    }

    // ---- Names ----
    void setThreadName(const ZString& name);
    // Fetches name, group and daemon unless known (always with `force`).
    void ensureThreadHasName(JNIEnv* env, jobject thread, bool force);
    static void retrieveThreadNameJava(JNIEnv* env, jobject thread, ZString* name, ZString* group, bool* daemon);
    void applyThreadNameToDB(const LockHolder& lock, DB* db);

    // ---- Lifecycle, under ourLock ----
    void onThreadStart(const LockHolder& lock);
    void onThreadEnd(const LockHolder& lock);

    int getTRN() const { return myTRN; }
    int getThreadRow() const { return myThreadRow; }
    int getTFIIndex() const { return myTFIIndex; }
    int64_t getNativeThreadId() const { return myNativeThreadId; }
    jobject getThreadReference() const { return myThreadReference; }
    void clearThreadReference() { myThreadReference = nullptr; }
    const ZString& getName() const { return myName; }
    bool isNameKnown() const { return myNameKnown; }
    bool isTouched() const { return myTouched; }
    void setTouched() { myTouched = true; }
    bool isAgentThread() const { return myAgentThread; }
    bool isExcludedFromTracing() const { return myExcludedFromTracing; }
    bool isExcludedFromSampling() const { return myExcludedFromSampling; }
    bool isStackKnown() const { return myStackKnown; }
    int getCurrentFrame() const { return myCurrentFrame; }
    int getTimeStackSize() const { return myTimeStack.getSize(); }
    int getEventWriteIndex() const { return myEventWriteIndex; }
    int getEventReadIndex() const { return myEventReadIndex; }
    ZNodeTree* getNodeTree();
    // Captures of this thread's own stack into its node tree.
    NodeStackCapture* getStackCapture();
    // CPU time by the thread's own clock, through the JVM for a thread found on
    // attach; process CPU time for a pseudo thread.
    int64_t getThreadCpuTimeNs() const;

    static ThreadInfo* findByTRN(int trn);
    // Under ourLock: `f` for each live thread of this moment. Playing may
    // not change the set, but a copy keeps the walk off the hash slots.
    template <typename F>
    static void forEachLiveThread(F f);
    // Players of events that belong to other recording stages (event tables,
    // exceptions, monitors); an id without one is skipped.
    typedef void (*ForeignEventPlayer)(const LockHolder& lock, ThreadInfo* thread, const int32_t* event);
    static ForeignEventPlayer ourForeignEventPlayers[14];
    // Told of the TRNs of finished threads just before they are merged away,
    // so that rows that name them can be moved too.
    static void (*ourBeforeThreadsMerged)(const LockHolder& lock, ZSet<int>& trns);

    static ZMap<int, ThreadInfo*>& ourTRN2ThreadInfo;
    static int ourRunningNumber;
    static IndexPool& ourIndexForTFIPool;
    static int64_t ourCreatedObjectCountInDeadThreads;
    static int64_t ourCreatedObjectSizeInDeadThreads;

    // The four pseudo threads, of which all but the first are started; the
    // database makes them as it is set up.
    static void createPseudoThreads(const LockHolder& lock);
    // Removes the rows of finished, merged threads that nothing refers to.
    static void collectGarbageTRNs(const LockHolder& lock);
    // Forgets every thread and the pseudo threads; for tests, with the database.
    static void resetForTests();

private:
    void playMethodEnter1(const LockHolder& lock, int node, int64_t wallTime, int64_t cpuTime, int generation);
    void playMethodEnter2(const LockHolder& lock, int method, int64_t time, int generation, int line);
    void playMethodExit(const LockHolder& lock, int method, int64_t time, int generation);
    void playAllocation(const LockHolder& lock, int64_t size, int nodeOrFrame);
    void pushStartTimes(const LockHolder& lock, int64_t wallTime, int64_t cpuTime);
    void adaptiveFilter(const LockHolder& lock, int method, int64_t deltaNs);
    void mergeOldFinishedThreads(const LockHolder& lock);

    // First member by contract: injected code stores a line here with one
    // Unsafe.putInt at the ThreadInfo's address.
    int32_t myPendingLine;
    int32_t mySeenTracingGeneration;
    bool myStackKnown;
    int32_t myMonitorEventRow;
    ZNodeTree* myNodeTree;
    NodeStackCapture* myStackCapture;
    ZMap<int, int>* myNodeToFrame;
    int32_t* myEventBuffer;
    // Written by the owning thread with release order, read by players.
    int32_t myEventWriteIndex;
    int32_t myEventReadIndex;
    // Texts of the buffered events, written by the owning thread; emptied
    // with the buffer.
    char* myTextStore;
    int32_t myTextStoreUsed;
    int64_t myNativeThreadId;
    jobject myThreadReference;
    int32_t myThreadRow;
    int32_t myTFIIndex;
    int32_t myTRN;
    int32_t myLastSampleFrame;
    int32_t myLastStateFrame;
    int64_t myLastStateCpuTime;
    int64_t myLastStateUptime;
    int32_t mySkipCounter;
    int64_t myCreatedObjectCount;
    int64_t myCreatedObjectSize;
    bool myAgentThread;
    bool myExcludedFromTracing;
    bool myExcludedFromSampling;
    bool myNameKnown;
    bool myDaemon;
    ZString myGroupName;
    ZString myName;
    bool myTouched;
    int32_t myNameStrId;
    int32_t myPendingExceptionClass;
    int32_t myPendingThrowNode;
    int32_t myCurrentFrame;
    ZVector<int64_t, 32> myTimeStack;
    int32_t myLastExceptionId;
    int32_t myLastExceptionRow;
    int64_t myLastWallSampleTime;
    int64_t myLastCpuSampleTime;
    // The record of the frame last looked up: a leaf call's exit finds the
    // record of its entry. Records never move; a clear of the table resets
    // every stack and with it this.
    int32_t myCachedRecordFrame;
    CpuProfilingRecord* myCachedRecord;
    // Recent calls (parent frame, method, line) with their frame and record,
    // so that a call repeated in a loop costs no walk of the shared tree.
    struct CallCacheEntry {
        int32_t myParent;
        int32_t myMethod;
        int32_t myLine;
        int32_t myFrame;
        int32_t myGeneration;  // the record is valid while the tracing generation is
        CpuProfilingRecord* myRecord;
    };
    static constexpr int CALL_CACHE_SIZE = 64;
    CallCacheEntry* myCallCache;
    struct ChildFrameEntry {
        int32_t myParent;
        int32_t myMethod;
        int32_t myFrame;
    };
    ChildFrameEntry* myChildFrameCache;
};

// Started, unfinished threads.
extern ZSet<ThreadInfo*>& ourAllThreadInfos;
// TRNs of ended threads not yet merged, in order of ending.
extern ZVector<int>& ourFinishedThreadTRNs;
// Pseudo threads, made with the database.
extern ThreadInfo* ourOldestFinishedThreads;
extern ThreadInfo* ourVMStartThread;
extern ThreadInfo* ourUnknownAllocatorThread;
extern ThreadInfo* ourThreadUnknown;

template <typename F>
void ThreadInfo::forEachLiveThread(F f) {
    ZVector<ThreadInfo*, 64> threads;
    for (int slot = 0; slot < ourAllThreadInfos.getCapacity(); slot++) {
        if (ourAllThreadInfos.isFull(slot)) threads.push(ourAllThreadInfos.keyAt(slot));
    }
    for (ThreadInfo* thread : threads) f(thread);
}

// The ThreadInfo of a thread (null: the current one), or null. In the start
// phase it is the VM start pseudo thread. Marks the thread touched and makes
// sure its name is known.
ThreadInfo* getThreadInfoJvmti(JNIEnv* env, jobject thread);
