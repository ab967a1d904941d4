// ThreadInfo: the agent's record of one Java thread, attached to it through
// JVMTI thread-local storage.
#pragma once

#include <jni.h>
#include <jvmti.h>
#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/ZMap.h"
#include "foundation/ZString.h"

class ThreadInfo {
public:
    ThreadInfo(int64_t nativeThreadId, jobject threadReference, const ZString& name, const ZString& groupName);

    int getTRN() const { return myTRN; }
    int64_t getNativeThreadId() const { return myNativeThreadId; }
    jobject getThreadReference() const { return myThreadReference; }
    void clearThreadReference() { myThreadReference = nullptr; }
    const ZString& getName() const { return myName; }
    bool isNamePending() const { return !myNameKnown; }
    bool isAgentThread() const { return myAgentThread; }
    bool isExcludedFromTracing() const { return myExcludedFromTracing; }
    bool isExcludedFromSampling() const { return myExcludedFromSampling; }
    // The line set by line instrumentation, taken by the next method entry.
    void setPendingLine(int line) { myPendingLine = line; }

    // Tracing events of this thread, called by the instrumentation's natives
    // on the thread itself: no lock, no allocation on the fast path.
    void onMethodEntry(JNIEnv* env, int methodId);
    void onMethodExit(JNIEnv* env, int methodId);

    // Reads name and group of the thread from Java.
    void retrieveThreadNameJava(jthread thread);
    void applyThreadNameToDB(const LockHolder& lock);
    void onThreadStart(const LockHolder& lock);
    void onThreadEnd(const LockHolder& lock);

    static int getLiveThreadCount(const LockHolder& lock);

private:
    void setName(const ZString& name);

    // First member by contract: injected code stores a line here with one
    // Unsafe.putInt at the ThreadInfo's address.
    int32_t myPendingLine;
    int64_t myNativeThreadId;
    jobject myThreadReference;
    int myTRN;
    bool myAgentThread;
    bool myExcludedFromTracing;
    bool myExcludedFromSampling;
    bool myNameKnown;
    ZString myGroupName;
    ZString myName;
};

// Started, unfinished threads.
extern ZSet<ThreadInfo*>& ourAllThreadInfos;

// The ThreadInfo of a thread, or null.
ThreadInfo* getThreadInfoJvmti(jvmtiEnv* env, jthread thread);
