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

    // Reads name and group of the thread from Java.
    void retrieveThreadNameJava(jthread thread);
    void applyThreadNameToDB(const LockHolder& lock);
    void onThreadStart(const LockHolder& lock);
    void onThreadEnd(const LockHolder& lock);

    static int getLiveThreadCount(const LockHolder& lock);

private:
    void setName(const ZString& name);

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
