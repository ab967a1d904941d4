// The natives of com.corvane.runtime.Callback that the agent core serves:
// time, status, properties, messages, process facts, threads and the
// dispatch keys. Each body runs inside the boundary rule.
#include "agent/AgentLoad.h"
#include "agent/ModeControl.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "agent/NativeTable.h"
#include "services/Options.h"
#include "foundation/System.h"
#include "foundation/UptimeProvider.h"
#include "foundation/ZLock.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "recording/ThreadInfo.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

static void throwUnexpectedKey(JNIEnv* env, const ZString& key) {
    throwException(env, (ZString("unexpected dispatch key '") + key + "'").c_str());
}

// The arguments of the environment keys: a count and a non-empty key.
static bool checkEnvironmentArguments(JNIEnv* env, const ZVectorSafe<ZString>& args, int count, const char* usage) {
    if (args.getSize() != count) {
        throwException(env, usage);
        return false;
    }
    if (args[0].isEmpty()) {
        throwException(env, "key must not be empty");
        return false;
    }
    return true;
}

extern "C" {

JNIEXPORT jlong JNICALL NATIVE(getTimeNsForTracing)(JNIEnv* env, jclass) {
    return getTimeNsForTracing();
}

JNIEXPORT jlong JNICALL NATIVE(getUptimeMs)(JNIEnv* env, jclass) {
    return ourUptimeProvider.getUptimeMs();
}

JNIEXPORT void JNICALL NATIVE(correctUptimeMs)(JNIEnv* env, jclass, jlong etalonMs) {
    KZT_NATIVE_BEGIN
    LockHolder holder(&ourLock, LOCK_SITE);
    ourUptimeProvider.correctUptimeMs(holder, etalonMs);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jlong JNICALL NATIVE(getStatus)(JNIEnv* env, jclass) {
    return (jlong)ourStatus.get();
}

JNIEXPORT jlong JNICALL NATIVE(getCapabilities)(JNIEnv* env, jclass) {
    return (jlong)ourCapabilities.get();
}

JNIEXPORT jint JNICALL NATIVE(getPhase)(JNIEnv* env, jclass) {
    jvmtiPhase phase = JVMTI_PHASE_DEAD;
    ourJVMTI->GetPhase(&phase);
    return phase;
}

JNIEXPORT jint JNICALL NATIVE(getTelemetryPeriodMs)(JNIEnv* env, jclass) {
    return ourOptions.getTelemetryPeriod();
}

JNIEXPORT jlong JNICALL NATIVE(getProcessCpuTimeNs)(JNIEnv* env, jclass, jboolean kernelOnly) {
    return getProcessCpuTimeNs(kernelOnly);
}

JNIEXPORT jlong JNICALL NATIVE(getProcessMemoryUsage)(JNIEnv* env, jclass) {
    return getProcessMemoryUsage();
}

JNIEXPORT jlong JNICALL NATIVE(getProcessPhysicalMemoryUsage)(JNIEnv* env, jclass) {
    return getProcessPhysicalMemoryUsage();
}

JNIEXPORT void JNICALL NATIVE(messageToLogFile)(JNIEnv* env, jclass, jstring text) {
    KZT_NATIVE_BEGIN
    Logger::message(createZS(env, text));
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(messageToStdout)(JNIEnv* env, jclass, jstring text) {
    KZT_NATIVE_BEGIN
    Logger::message(createZS(env, text), stdout);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(messageToStderr)(JNIEnv* env, jclass, jstring text) {
    KZT_NATIVE_BEGIN
    Logger::message(createZS(env, text), stderr);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jint JNICALL NATIVE(setProperty)(JNIEnv* env, jclass, jstring jkey, jstring jvalue) {
    KZT_NATIVE_BEGIN
    ZString key = createZS(env, jkey);
    ZString value = createZS(env, jvalue);
    LockHolder lock(&ourLock, LOCK_SITE);
    DB* db = KZT_DB();
    db->setProperty(lock, key.c_str(), StringPool::getStrID(lock, value));
    return db->findPropertyRecordIndex(StringPool::getStrID(lock, key));
    KZT_NATIVE_END(env, -1)
}

JNIEXPORT void JNICALL NATIVE(setPropertyByRecordIndex)(JNIEnv* env, jclass, jint index, jint value) {
    KZT_NATIVE_BEGIN
    LockHolder lock(&ourLock, LOCK_SITE);
    DB* db = KZT_DB();
    PropertyRecord* record = index > 0 ? db->getPropertyTable()->getPtr(index, false) : nullptr;
    if (record == nullptr || record->myStamp < 1 || record->myValue == value) return;
    record->myValue = value;
    record->myStamp = db->getCurrentGeneration();
    KZT_NATIVE_END(env, )
}

JNIEXPORT jint JNICALL NATIVE(findPropertyRecordIndex)(JNIEnv* env, jclass, jint key) {
    KZT_NATIVE_BEGIN
    LockHolder lock(&ourLock, LOCK_SITE);
    return KZT_DB()->findPropertyRecordIndex(key);
    KZT_NATIVE_END(env, -1)
}

// A notice for whoever watches the application: the log, and stderr.
JNIEXPORT void JNICALL NATIVE(message)(JNIEnv* env, jclass, jstring jtext, jstring jdetail) {
    KZT_NATIVE_BEGIN
    ZString text = createZS(env, jtext);
    ZString detail = createZS(env, jdetail);
    if (!detail.isEmpty()) text.append(text.isEmpty() ? "" : ": ").append(detail);
    Logger::notice(text);
    KZT_NATIVE_END(env, )
}

// Asynchronous sampling does not exist on this platform: nothing to leave out.
JNIEXPORT void JNICALL NATIVE(excludeThreadFromAsyncSampling)(JNIEnv* env, jclass) {}

JNIEXPORT jboolean JNICALL NATIVE(forceGarbageCollectionJvmti)(JNIEnv* env, jclass) {
    return ourJVMTI != nullptr && ourJVMTI->ForceGarbageCollection() == JVMTI_ERROR_NONE ? JNI_TRUE : JNI_FALSE;
}

// Four ints a thread that has stood on one frame for longer than the
// threshold: its number, the frame, and the low and high half of the uptime
// in ns since when it stands there.
JNIEXPORT jintArray JNICALL NATIVE(getFrozenThreadsImpl)(JNIEnv* env, jclass, jlong thresholdMs) {
    KZT_NATIVE_BEGIN
    ZVector<int> rows;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        int64_t limit = ourUptimeProvider.getUptimeNs() - thresholdMs * 1000000;
        for (int slot = 0; slot < ourAllThreadInfos.getCapacity(); slot++) {
            if (!ourAllThreadInfos.isFull(slot)) continue;
            ThreadInfo* thread = ourAllThreadInfos.keyAt(slot);
            int64_t since = thread->getLastStateUptime();
            if (thread->getLastStateFrame() <= 0 || since < 0 || since >= limit) continue;
            rows.push(thread->getTRN());
            rows.push(thread->getLastStateFrame());
            rows.push((int)(uint32_t)(uint64_t)since);
            rows.push((int)(uint32_t)((uint64_t)since >> 32));
        }
    }
    return rows.isEmpty() ? nullptr : newJIntArray(env, rows);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jlong JNICALL NATIVE(dispatchLong)(JNIEnv* env, jclass, jstring jkey) {
    KZT_NATIVE_BEGIN
    ZString key = createZS(env, jkey);
    if (key.equals("d_getSystemCpuTimeNs")) return getSystemCpuTimeNs(false);
    if (key.equals("d_getPid")) return z_getpid();
    if (key.equals("_socket_timeout_ms") || key.equals("_tele_sample_threshold_ms"))
        return ourOptions.getInternalInt(key.c_str(), -1);
    if (key.equals("_no_http") || key.equals("_no_gc_pause_counter"))
        return ourOptions.isInternalOption(key.c_str()) ? 1 : 0;
    throwUnexpectedKey(env, key);
    return 0;
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT jobject JNICALL NATIVE(dispatchNullable)(JNIEnv* env, jclass, jstring jkey, jobjectArray jargs) {
    KZT_NATIVE_BEGIN
    ZString key = createZS(env, jkey);
    ZVectorSafe<ZString> args;
    fillStringVectorFromJArray(env, jargs, args);
    if (key.equals("d_command_line")) {
        ZVectorSafe<ZString> arguments;
        getCommandLineParameters(arguments);
        return newStringArray(env, arguments);
    }
    if (key.equals("d_process_owner")) return newJavaString(env, getProcessOwnerUnix(z_getpid()));
    if (key.equals("d_get_platform")) return newJavaString(env, getPresentablePlatformName());
    if (key.equals("d_getHostName")) return newJavaString(env, getHostName());
    if (key.equals("d_clear_charts")) {
        {
            LockHolder lock(&ourLock, LOCK_SITE);
            clearChartsDataImpl(lock);
        }
        Logger::message("Telemetry charts cleared");
        return nullptr;
    }
    if (key.equals("d_get_env")) {
        if (!checkEnvironmentArguments(env, args, 1, "expected: key")) return nullptr;
        return newJavaString(env, z_getenv(args[0].c_str()));
    }
    if (key.equals("d_set_env")) {
        if (!checkEnvironmentArguments(env, args, 2, "expected: key value")) return nullptr;
        z_setenv(args[0].c_str(), args[1].c_str());
        return nullptr;
    }
    throwUnexpectedKey(env, key);
    return nullptr;
    KZT_NATIVE_END(env, nullptr)
}

}  // extern "C"

static const JNINativeMethod ourAgentCoreRows[] = {
    KZT_NATIVE_ROW(correctUptimeMs, "(J)V"),
    KZT_NATIVE_ROW(dispatchLong, "(Ljava/lang/String;)J"),
    KZT_NATIVE_ROW(dispatchNullable, "(Ljava/lang/String;[Ljava/lang/String;)Ljava/lang/Object;"),
    KZT_NATIVE_ROW(excludeThreadFromAsyncSampling, "()V"),
    KZT_NATIVE_ROW(findPropertyRecordIndex, "(I)I"),
    KZT_NATIVE_ROW(forceGarbageCollectionJvmti, "()Z"),
    KZT_NATIVE_ROW(getCapabilities, "()J"),
    KZT_NATIVE_ROW(getFrozenThreadsImpl, "(J)[I"),
    KZT_NATIVE_ROW(getPhase, "()I"),
    KZT_NATIVE_ROW(getProcessCpuTimeNs, "(Z)J"),
    KZT_NATIVE_ROW(getProcessMemoryUsage, "()J"),
    KZT_NATIVE_ROW(getProcessPhysicalMemoryUsage, "()J"),
    KZT_NATIVE_ROW(getStatus, "()J"),
    KZT_NATIVE_ROW(getTelemetryPeriodMs, "()I"),
    KZT_NATIVE_ROW(getTimeNsForTracing, "()J"),
    KZT_NATIVE_ROW(getUptimeMs, "()J"),
    KZT_NATIVE_ROW(message, "(Ljava/lang/String;Ljava/lang/String;)V"),
    KZT_NATIVE_ROW(messageToLogFile, "(Ljava/lang/String;)V"),
    KZT_NATIVE_ROW(messageToStderr, "(Ljava/lang/String;)V"),
    KZT_NATIVE_ROW(messageToStdout, "(Ljava/lang/String;)V"),
    KZT_NATIVE_ROW(setProperty, "(Ljava/lang/String;Ljava/lang/String;)I"),
    KZT_NATIVE_ROW(setPropertyByRecordIndex, "(II)V"),
};

KZT_NATIVE_GROUP(ourAgentCoreNatives, ourAgentCoreRows);
