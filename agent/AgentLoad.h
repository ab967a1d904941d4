// The load sequence and the live-phase steps of the agent: from the JVM's
// first call into the library to VMDeath.
#pragma once

#include <jni.h>
#include <jvmti.h>

#include "foundation/ZString.h"
#include "services/LoadRules.h"

// Exit codes of the load routine.
enum AgentLoadResult {
    LOAD_OK = 0,
    LOAD_NO_JVMTI = 1,
    LOAD_JVMTI_TOO_OLD = 2,
    LOAD_INVALID_OPTIONS = 3,
    LOAD_JAVA_TOO_OLD = 4,
    LOAD_CAPABILITIES_FAILED = 6,
    LOAD_ARCHIVE_FAILED = 8,
    LOAD_ATTACH_NO_JNI = 9,
    LOAD_ATTACH_INIT_FAILED = 10,
    LOAD_JAVA_TOO_NEW = 16,
    LOAD_VMINIT_FAILED = 20,
    LOAD_ENV_FAILED = 21,
    LOAD_ENV_CAPABILITIES_FAILED = 22,
    LOAD_JVM_ONLOAD_ONLY = 23,
};

int agentLoadImpl(JavaVM* vm, const ZString& fullOptions);
// The refusal of JVMs older than Java 7.
extern const char* const OLD_JAVA_MESSAGE;
[[noreturn]] void doExit(int code);

jvmtiEnv* createTaggableJVMTIEnv(bool withObjectFree);
ZString writeCallbackJar();

void agentStart(JNIEnv* env);
bool agentInit(JNIEnv* env);
void onStartProfiling(JNIEnv* env);

// JVMTI event handlers.
void JNICALL vmStart(jvmtiEnv* jvmti, JNIEnv* env);
void JNICALL vmInit(jvmtiEnv* jvmti, JNIEnv* env, jthread thread);
void JNICALL vmDeath(jvmtiEnv* jvmti, JNIEnv* env);
void JNICALL threadStart(jvmtiEnv* jvmti, JNIEnv* env, jthread thread);
void JNICALL threadEnd(jvmtiEnv* jvmti, JNIEnv* env, jthread thread);
void threadStartImpl(JNIEnv* env, jthread thread, int64_t nativeThreadId, int64_t nativeTid2);
void JNICALL object_free_handler(jvmtiEnv* jvmti, jlong tag);
void JNICALL object_free_handler_JVMTI_ClassUnload(jvmtiEnv* jvmti, jlong tag);
void JNICALL object_free_handler_JVMTI_PersistentObjectIDs(jvmtiEnv* jvmti, jlong tag);
void JNICALL vm_object_alloc_handler(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object,
                                     jclass objectClass, jlong size);
void JNICALL sampled_object_alloc_handler(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object,
                                          jclass objectClass, jlong size);
void JNICALL class_file_load_hook_handler(jvmtiEnv* jvmti, JNIEnv* env, jclass classBeingRedefined,
                                          jobject loader, const char* name, jobject protectionDomain,
                                          jint classDataLength, const unsigned char* classData,
                                          jint* newClassDataLength, unsigned char** newClassData);
void JNICALL class_load_handler(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jclass klass);
void JNICALL class_prepare_handler(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jclass klass);
void JNICALL monitorContendedEnter(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object);
void JNICALL monitorContendedEntered(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object);
void JNICALL monitorWait(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object, jlong timeout);
void JNICALL monitorWaited(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object, jboolean timedOut);
void JNICALL exception_handler(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jmethodID method,
                               jlocation location, jobject exception, jmethodID catchMethod,
                               jlocation catchLocation);
void JNICALL exception_catch(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jmethodID method,
                             jlocation location, jobject exception);
void JNICALL compiled_method_load(jvmtiEnv* jvmti, jmethodID method, jint codeSize, const void* codeAddress,
                                  jint mapLength, const jvmtiAddrLocationMap* map, const void* compileInfo);
void JNICALL compiled_method_unload(jvmtiEnv* jvmti, jmethodID method, const void* codeAddress);
void JNICALL dynamic_code_generated(jvmtiEnv* jvmti, const char* name, const void* address, jint length);

// The out-of-memory heap dump watcher thread.
void JNICALL detector_thread_entry(jvmtiEnv* jvmti, JNIEnv* env, void* arg);
void oome_snapshot_detector();

// Joints to the later stages of the data path, driven by the load sequence.
void createDatabase(int telemetryLimit);
void advanceGenerationOnLoad(const class LockHolder& lock, const char* description);
int64_t getDatabaseSessionId();
void startCpuProfilingFromOptions(JNIEnv* env, int64_t modeWord);
void startAllocationRecordingFromOptions(JNIEnv* env);
void startMonitorProfilingFromOptions(JNIEnv* env);
