// Monitor profiling: how long threads are blocked on contended monitors and
// how long they wait in Object.wait, by thread, stack, owner thread and
// class of the monitor. The JVM's four monitor events become events of the
// thread (begin: class, node, time, owner; end: class, node, time); the
// player pairs them into the "monitor" table. A wait is leaving and
// re-entering in one measure, owned by the waiting thread itself: that is
// what tells a wait row from a block row. With "_monitors_probe_enable"
// each block and each wait is also a row of the event table "Thread block"
// or "Thread wait", from its start to its end.
#pragma once

#include <jni.h>
#include <cstdint>

#include "db/DBRecords.h"
#include "foundation/ZLock.h"
#include "foundation/ZMap.h"
#include "foundation/ZString.h"

class ThreadInfo;

class Monitors {
public:
    // Internal options, read at each start.
    static bool ourEmptyCallback;                  // "_monitors_empty_callback"
    static bool ourDisableMonitorProfilingBranch;  // "_monitors_legacy_disable"
    static bool ourEnableMonitorEventProbe;        // "_monitors_probe_enable"
    static bool ourNoStack;                        // "_monitors_no_stack"
    // Uptimes of the last start and stop; 0 before the first start.
    static int64_t ourMonitorRecordingStartNs;
    static int64_t ourMonitorRecordingStopNs;

    // ---- The JVM's events, on the thread concerned ----
    // A contended enter (`contended`) or the start of a wait.
    static void monitorEnterImpl(JNIEnv* env, jobject object, bool contended);
    // The monitor entered after contention, or the wait over.
    static void monitorEnteredImpl(JNIEnv* env, jobject object, bool contended);

    // ---- Mode control ----
    // Empty on success, else the refusal.
    static ZString startMonitorProfiling(JNIEnv* env);
    // Does nothing while off.
    static void stopMonitorProfiling(JNIEnv* env);
    // Empties "monitor" and what points into it, and forgets the classes of monitors.
    static void clearMonitorData(const LockHolder& lock);
    // "kzt.monitor.profiling.duration.ns" when the mask has "monitor" and recording ever started.
    static void setRecordingTimeProperties(const LockHolder& lock, int tableMask);

    // ---- Playing, under ourLock ----
    static void playMonitorEnterBegin(const LockHolder& lock, ThreadInfo* thread, int classStr, int node,
                                      int64_t time, int ownerTRN);
    static void playMonitorEnterEnd(const LockHolder& lock, ThreadInfo* thread, int classStr, int node,
                                    int64_t time);
    // Rows of the threads in `trns` fold into "<Oldest finished threads>".
    static void mergeMonitorUsage(const LockHolder& lock, const ZSet<int>& trns);

    static void resetForTests();

private:
    static int getRecordIndex(const LockHolder& lock, ThreadInfo* thread, int classStr, int node, int ownerTRN);
};
