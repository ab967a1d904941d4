// ThreadStart and ThreadEnd: each thread gets its ThreadInfo in JVMTI
// thread-local storage for its whole life.
#include "agent/AgentLoad.h"
#include "agent/AgentState.h"
#include "agent/JvmGlue.h"
#include "agent/Logger.h"
#include "agent/Options.h"
#include "db/DB.h"
#include "foundation/System.h"
#include "recording/ThreadInfo.h"

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
    LockHolder holder(&ourLock, LOCK_SITE);
    ThreadInfo* existing = getThreadInfoJvmti(ourJVMTI, thread);
    if (existing != nullptr) {
        // On attach the agent's own threads started meanwhile are already known.
        if (nativeThreadId == 0) return;
        Logger::message(ZString("warning: multiple ThreadStart events: TRN=") + ZString::fromLong(existing->getTRN()) +
                        " name=" + existing->getName());
        return;
    }
    // Threads found on attach are not the current thread: keep a reference.
    jobject reference = nativeThreadId == 0 ? env->NewGlobalRef(thread) : nullptr;
    static int readNamesAtOnce = -1;
    if (readNamesAtOnce < 0) readNamesAtOnce = ourOptions.isInternalOption("_no_FIX_20160830_1") ? 1 : 0;
    ThreadInfo* info = new ThreadInfo(nativeThreadId, reference, ZString(), ZString());
    if (readNamesAtOnce == 1) info->retrieveThreadNameJava(thread);
    check_JVMTI_error(ourJVMTI->SetThreadLocalStorage(thread, info));
    info->onThreadStart(holder);
}

void JNICALL threadEnd(jvmtiEnv* jvmti, JNIEnv* env, jthread thread) {
    try {
        LockHolder holder(&ourLock, LOCK_SITE);
        ThreadInfo* info = getThreadInfoJvmti(ourJVMTI, thread);
        if (info == nullptr) return;
        KZT_DB();
        if (info->isNamePending()) info->applyThreadNameToDB(holder);
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
