#include "recording/ThreadInfo.h"

#include "agent/AgentState.h"
#include "agent/JvmGlue.h"

ZSet<ThreadInfo*>& ourAllThreadInfos = *new ZSet<ThreadInfo*>(64);

// Thread running numbers start at 1 and are never reused.
static int ourLastTRN = 0;

ThreadInfo::ThreadInfo(int64_t nativeThreadId, jobject threadReference, const ZString& name, const ZString& groupName)
    : myPendingLine(0), myNativeThreadId(nativeThreadId), myThreadReference(threadReference), myTRN(0), myAgentThread(false),
      myExcludedFromTracing(false), myExcludedFromSampling(false), myNameKnown(false), myGroupName(groupName) {
    if (!name.isEmpty()) setName(name);
}

void ThreadInfo::setName(const ZString& name) {
    myName = name;
    myNameKnown = true;
    myAgentThread = name.startsWith("KZTAgent-");
    myExcludedFromTracing = myAgentThread || name.startsWith("KZT-Process-Exit-Listener");
    myExcludedFromSampling = name.startsWith("KZTAgent-AsyncSamplingEventsProcessor") ||
                             name.startsWith("KZTAgent-CpuSampler") ||
                             name.startsWith("KZTAgent-OomeSnapshotDetector");
}

void ThreadInfo::retrieveThreadNameJava(jthread thread) {
    jvmtiThreadInfo info;
    if (ourJVMTI->GetThreadInfo(thread, &info) != JVMTI_ERROR_NONE) return;
    setName(ZString(info.name != nullptr ? info.name : ""));
    deallocate(info.name);
}

void ThreadInfo::onMethodEntry(JNIEnv* env, int methodId) {}

void ThreadInfo::onMethodExit(JNIEnv* env, int methodId) {}

void ThreadInfo::applyThreadNameToDB(const LockHolder& lock) {}

void ThreadInfo::onThreadStart(const LockHolder& lock) {
    myTRN = ++ourLastTRN;
    ourAllThreadInfos.add(this);
}

void ThreadInfo::onThreadEnd(const LockHolder& lock) {
    ourAllThreadInfos.remove(this);
}

int ThreadInfo::getLiveThreadCount(const LockHolder& lock) {
    return ourAllThreadInfos.getSize();
}

ThreadInfo* getThreadInfoJvmti(jvmtiEnv* env, jthread thread) {
    void* data = nullptr;
    if (env->GetThreadLocalStorage(thread, &data) != JVMTI_ERROR_NONE) return nullptr;
    return (ThreadInfo*)data;
}
