// JVMTI event handlers whose work belongs to later stages (class rewriting,
// allocation, monitor and exception recording). Each stays within the
// boundary rule: nothing thrown here ever reaches the JVM.
#include "agent/AgentLoad.h"
#include "services/AgentState.h"
#include "services/Logger.h"
#include "instrumentation/Instrumentation.h"
#include "probes/ClassLoadingProbe.h"
#include "recording/AllocationRecording.h"
#include "recording/CpuTracing.h"
#include "recording/EntryPoints.h"
#include "recording/Exceptions.h"
#include "recording/JavaObjectMap.h"
#include "recording/Monitors.h"
#include "recording/ObjectEnumerator.h"
#include "recording/ThreadInfo.h"

void JNICALL object_free_handler(jvmtiEnv* jvmti, jlong tag) {
    try {
        // The low half is the enumerator's; the high half a generation.
        if (tag != 0) ourObjectEnumerator.onObjectFree((int)(uint32_t)(uint64_t)tag);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}
void JNICALL object_free_handler_JVMTI_ClassUnload(jvmtiEnv* jvmti, jlong tag) {
    try {
        ClassLoadingProbe::onClassUnload(tag);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}
void JNICALL object_free_handler_JVMTI_PersistentObjectIDs(jvmtiEnv* jvmti, jlong tag) {
    try {
        JavaObjectMap::onObjectFree(tag);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

// Objects made inside the JVM get no bytecode call.
void JNICALL vm_object_alloc_handler(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object,
                                     jclass objectClass, jlong size) {
    try {
        kztInitImpl(env, object, nullptr, 0, -1, 0, 0);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

void JNICALL sampled_object_alloc_handler(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object,
                                          jclass objectClass, jlong size) {
    try {
        kztInitImpl(env, object, objectClass, size, -1, 0, 0);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

void JNICALL class_file_load_hook_handler(jvmtiEnv* jvmti, JNIEnv* env, jclass classBeingRedefined,
                                          jobject loader, const char* name, jobject protectionDomain,
                                          jint classDataLength, const unsigned char* classData,
                                          jint* newClassDataLength, unsigned char** newClassData) {
    classFileLoadHook(jvmti, env, classBeingRedefined, name, classDataLength, classData, newClassDataLength,
                      newClassData);
}

// Wanted for its side effect in the JVM, not its content.
void JNICALL class_load_handler(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jclass klass) {}

void JNICALL class_prepare_handler(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jclass klass) {
    try {
        if (ourCapabilities.get() & CAPABILITY_ASYNC_SAMPLING) {
            // Forces the method ids of the class into being.
            jint count = 0;
            jmethodID* methods = nullptr;
            if (jvmti->GetClassMethods(klass, &count, &methods) == JVMTI_ERROR_NONE)
                jvmti->Deallocate((unsigned char*)methods);
        }
        if (ourCapabilities.get() & CAPABILITY_ALLOC_BCI) kztInitImpl(env, klass, nullptr, 0, -1, 0, 0);
        if (ourVmInitCalled) ClassLoadingProbe::onClassPrepare(env, klass);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

void JNICALL monitorContendedEnter(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object) {
    try {
        Monitors::monitorEnterImpl(env, object, true);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

void JNICALL monitorContendedEntered(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object) {
    try {
        Monitors::monitorEnteredImpl(env, object, true);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

// A wait leaves the monitor and enters it again: one measure, owned by the thread itself.
void JNICALL monitorWait(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object, jlong timeout) {
    try {
        Monitors::monitorEnterImpl(env, object, false);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

void JNICALL monitorWaited(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jobject object, jboolean timedOut) {
    try {
        Monitors::monitorEnteredImpl(env, object, false);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

void JNICALL exception_handler(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jmethodID method,
                               jlocation location, jobject exception, jmethodID catchMethod,
                               jlocation catchLocation) {
    try {
        bool counting = ourStatus.hasAny(EXCEPTION_PROFILING);
        bool tracing = isCpuTracingActive();
        if (!counting && !tracing) return;
        ThreadInfo* info = getThreadInfoJvmti(env, thread);
        if (info == nullptr) return;
        if (counting) Exceptions::handleException(NoLock(), env, info, exception, catchMethod != nullptr);
        // The frames it unwinds send no exits: the thread's next method event brings its whole stack.
        if (tracing) info->clearTracingEventWords();
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

void JNICALL exception_catch(jvmtiEnv* jvmti, JNIEnv* env, jthread thread, jmethodID method,
                             jlocation location, jobject exception) {
    try {
        if (!ourStatus.hasAny(EXCEPTION_PROFILING)) return;
        ThreadInfo* info = getThreadInfoJvmti(env, thread);
        if (info != nullptr) Exceptions::handleExceptionCatch(NoLock(), env, info, exception);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

void JNICALL compiled_method_load(jvmtiEnv* jvmti, jmethodID method, jint codeSize, const void* codeAddress,
                                  jint mapLength, const jvmtiAddrLocationMap* map, const void* compileInfo) {}
void JNICALL compiled_method_unload(jvmtiEnv* jvmti, jmethodID method, const void* codeAddress) {}
void JNICALL dynamic_code_generated(jvmtiEnv* jvmti, const char* name, const void* address, jint length) {}
