// ThreadStart and ThreadEnd: each thread gets its ThreadInfo in JVMTI
// thread-local storage for its whole life.
#include "agent/AgentLoad.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "db/DB.h"
#include "foundation/System.h"
#include "recording/ThreadInfo.h"

// The stored ThreadInfo itself: no name lookup, the thread isn't touched.
static ThreadInfo* getStoredThreadInfo(jthread thread) {
    void* data = nullptr;
    if (ourJVMTI->GetThreadLocalStorage(thread, &data) != JVMTI_ERROR_NONE) return nullptr;
    return (ThreadInfo*)data;
}

void JNICALL threadStart(jvmtiEnv* jvmti, JNIEnv* env, jthread thread) {
    try {
        int64_t id = getCurrentThreadNativeID();
        threadStartImpl(env, thread, id, id);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

void threadStartImpl(JNIEnv* env, jthread thread, int64_t nativeThreadId, int64_t nativeTid2) {
    KZT_ASSERT_NOT_NULL(thread);
    if (ourVmDeathCalled) return;
    static int readNamesAtOnce = -1;
    if (readNamesAtOnce < 0) readNamesAtOnce = ourOptions.isInternalOption("_no_FIX_20160830_1") ? 1 : 0;
    // Read outside the lock: the name is asked of the JVM.
    ZString name;
    ZString group;
    bool daemon = false;
    if (readNamesAtOnce == 1) ThreadInfo::retrieveThreadNameJava(env, thread, &name, &group, &daemon);

    LockHolder holder(&ourLock, LOCK_SITE);
    ThreadInfo* existing = getStoredThreadInfo(thread);
    if (existing != nullptr) {
        // On attach, the agent's own threads started meanwhile are known already.
        Logger::message(ZString("warning: multiple ThreadStart events: TRN=") +
                        ZString::fromLong(existing->getThreadRow()) + " name=" + existing->getName());
        return;
    }
    // Threads found on attach are not the current thread: keep a reference.
    jobject reference = nativeThreadId == 0 ? env->NewGlobalRef(thread) : nullptr;
    ThreadInfo* info = new ThreadInfo(holder, name, group, nativeThreadId, nativeTid2, reference, daemon);
    check_JVMTI_error(ourJVMTI->SetThreadLocalStorage(thread, info));
    info->onThreadStart(holder);
}

void JNICALL threadEnd(jvmtiEnv* jvmti, JNIEnv* env, jthread thread) {
    try {
        LockHolder holder(&ourLock, LOCK_SITE);
        ThreadInfo* info = getStoredThreadInfo(thread);
        if (info == nullptr) return;
        DB* db = KZT_DB();
        // A thread never looked up keeps its name out of the database.
        if (info->isTouched()) info->applyThreadNameToDB(holder, db);
        check_JVMTI_error(ourJVMTI->SetThreadLocalStorage(thread, nullptr));
        if (info->getThreadReference() != nullptr) {
            env->DeleteGlobalRef(info->getThreadReference());
            info->clearThreadReference();
        }
        info->onThreadEnd(holder);
        delete info;
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}
