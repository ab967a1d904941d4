// The live-phase steps: agentStart (natives), agentInit (the Java half),
// onStartProfiling, and the VMStart, VMInit and VMDeath events.
#include "agent/AgentLoad.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "agent/NativeTable.h"
#include "services/Options.h"
#include "foundation/System.h"
#include "foundation/ZLock.h"
#include "probes/Probes.h"
#include "recording/AllocationRecording.h"

static jclass ourClassCoreGlobalRef = nullptr;

static const char* const CORE_INIT_SIGNATURE =
    "(IILjava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;IJIIZLjava/lang/"
    "String;)Z";

void agentStart(JNIEnv* env) {
    Logger::message("agentStart: 1");
    if (ourCapabilities.hasAny(CAPABILITY_ALLOC_BCI)) redirectJniFunctions();
    Logger::message("agentStart: 2");
    jclass callbackClass = findClass(env, CALLBACK_CLASS);
    int count = 0;
    const JNINativeMethod* natives = getAgentNativeMethods(&count);
    jint result = env->RegisterNatives(callbackClass, natives, count);
    if (result != 0) {
        env->ExceptionClear();
        Logger::error(ZString("error: RegisterNatives for Callback failed with code ") + ZString::fromLong(result),
                      __FILE__, __LINE__);
    }
    env->DeleteLocalRef(callbackClass);
    Logger::message("agentStart: OK");
}

// Lets the runtime classes reach jdk.internal.misc on Java 9 and newer.
static void exportInternalMisc(JNIEnv* env) {
    jobject miscModule = nullptr;
    jvmtiError error = ourJVMTI->GetNamedModule(nullptr, "jdk/internal/misc", &miscModule);
    if (error != JVMTI_ERROR_NONE) {
        Logger::message(ZString("error: GetNamedModule returned ") + getJvmtiErrorName(ourJVMTI, error));
        return;
    }
    if (miscModule == nullptr) {
        Logger::message("error: module for jdk/internal/misc is NULL");
        return;
    }
    jclass callbackClass = findClass(env, CALLBACK_CLASS);
    jobject callbackModule = env->GetModule(callbackClass);
    if (callbackModule == nullptr) {
        env->ExceptionClear();
        Logger::message("error: Callback module is NULL");
        return;
    }
    error = ourJVMTI->AddModuleExports(miscModule, "jdk.internal.misc", callbackModule);
    Logger::message(ZString("AddModuleExports returned ") + getJvmtiErrorName(ourJVMTI, error));
}

// Classes that the JVM loaded before the agent could instrument them, each
// logged by name. They go to the JVM in one request, which walks the loaded
// classes once; if it fails, each class is tried alone, so that the one that
// fails is told and the others are still instrumented.
static const int MOST_EARLY_CLASSES = 3;

static void retransformEarlyClasses(JNIEnv* env, const char* const* names, int count) {
    jclass classes[MOST_EARLY_CLASSES];
    int found = 0;
    for (int i = 0; i < count && i < MOST_EARLY_CLASSES; i++) {
        Logger::message(ZString("Retransform early class: ") + names[i]);
        jclass klass = env->FindClass(names[i]);
        if (klass == nullptr) {
            env->ExceptionClear();
            continue;
        }
        classes[found++] = klass;
    }
    if (found > 0 && ourJVMTI->RetransformClasses(found, classes) != JVMTI_ERROR_NONE) {
        cleanupAfterRetransformClassesFailure(env);
        for (int i = 0; i < found; i++) {
            jvmtiError error = ourJVMTI->RetransformClasses(1, &classes[i]);
            if (error == JVMTI_ERROR_NONE) continue;
            Logger::message(ZString("warning: retransform early class failed: ") + getJvmtiErrorName(ourJVMTI, error));
            cleanupAfterRetransformClassesFailure(env);
        }
    }
    for (int i = 0; i < found; i++) env->DeleteLocalRef(classes[i]);
}

static jstring javaString(JNIEnv* env, const ZString& text) {
    jstring result = newJavaString(env, text);
    assertJni(env);
    return result;
}

bool agentInit(JNIEnv* env) {
    Logger::message("agentInit: 1");
    if (ourIsJava9orNewer && !ourOptions.isInternalOption("_force_sun_misc_Unsafe")) exportInternalMisc(env);

    jclass coreClass = findClass(env, CORE_CLASS);
    ourClassCoreGlobalRef = (jclass)env->NewGlobalRef(coreClass);
    env->DeleteLocalRef(coreClass);
    Logger::message("agentInit: Core loaded");

    jmethodID init = env->GetStaticMethodID(ourClassCoreGlobalRef, "init", CORE_INIT_SIGNATURE);
    assertJni(env);
    ZString triggerText = ourOptions.getTriggerText() +
                          readConfigFromFile(ourOptions.getTriggersPath(), "triggers.txt", "");
    jboolean initialized = env->CallStaticBooleanMethod(
        ourClassCoreGlobalRef, init, (jint)ourOptions.getLowerPort(), (jint)ourOptions.getUpperPort(),
        javaString(env, ourOptions.getListen()), javaString(env, ourOptions.getSessionName()),
        javaString(env, ourOptions.getSnapshotNameFormat()), javaString(env, ourOptions.getDir()),
        javaString(env, ourOptions.getProfilerDir()), (jint)ourOptions.getIdePort(), (jlong)getDatabaseSessionId(),
        (jint)ourOptions.getDelay(), (jint)ourOptions.getTelemetryLimit(), (jboolean)!ourOptions.isOomeDumperDisabled(),
        javaString(env, triggerText));
    assertJni(env);
    Logger::message("agentInit: Core.init() called");
    if (!initialized) {
        Logger::message("error: agentInit: Core.init() returned false", stdout);
        return false;
    }

    if (ourIsJava9orNewer && !isAttaching()) {
        // The probe Threads applies to the class of threads, which the JVM
        // loads long before the agent may instrument anything.
        bool threads = false;
        {
            LockHolder lock(&ourLock, LOCK_SITE);
            threads = Probes::findTopProbe(lock, ZString(BUILTIN_PROBE_PACKAGE) + "Threads") != nullptr;
        }
        const char* const early[MOST_EARLY_CLASSES] = {"java/io/FileInputStream", "java/io/FileOutputStream",
                                                       "java/lang/Thread"};
        retransformEarlyClasses(env, early, threads ? 3 : 2);
    }

    jthread detector = createThread(env, OOME_DETECTOR_THREAD_NAME);
    check_JVMTI_error(ourJVMTI->RunAgentThread(detector, detector_thread_entry, nullptr, JVMTI_THREAD_MAX_PRIORITY));
    env->DeleteLocalRef(detector);

    ourVmInitCalled = true;
    Logger::message("agentInit: OK");
    return true;
}

void onStartProfiling(JNIEnv* env) {
    Logger::message("onStartProfiling: entering...");
    if (ourOptions.isSampling()) {
        Logger::message("onStartProfiling: will start CPU sampling...");
        startCpuProfilingFromOptions(env, (int64_t)ourOptions.getSamplingMode() | 4);
    } else if (ourOptions.isTracing()) {
        Logger::message("onStartProfiling: will start CPU tracing...");
        startCpuProfilingFromOptions(env, 12);
    } else if (ourOptions.isCallCounting()) {
        Logger::message("onStartProfiling: will start call counting...");
        startCpuProfilingFromOptions(env, 4100);
    }
    if (ourOptions.getAllocationMode() != 0) {
        Logger::message("onStartProfiling: will start allocation recording...");
        startAllocationRecordingFromOptions(env);
    }
    if (ourOptions.isMonitorProfiling()) {
        Logger::message("onStartProfiling: will start monitor profiling...");
        startMonitorProfilingFromOptions(env);
    }
    Logger::message("onStartProfiling: done");
}

void JNICALL vmStart(jvmtiEnv* jvmti, JNIEnv* env) {
    try {
        agentStart(env);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

void JNICALL vmInit(jvmtiEnv* jvmti, JNIEnv* env, jthread thread) {
    try {
        Logger::message("vmInit: 1");
        {
            LockHolder holder(&ourLock, LOCK_SITE);
            advanceGenerationOnLoad(holder, "JVM initialization");
        }
        Logger::message("vmInit: 2");
        if (!agentInit(env)) doExit(LOAD_VMINIT_FAILED);
        Logger::message("vmInit: 3");
        onStartProfiling(env);
        Logger::message("vmInit: OK");
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}

static void callCoreStatic(JNIEnv* env, const char* name) {
    jmethodID method = env->GetStaticMethodID(ourClassCoreGlobalRef, name, "()V");
    assertJni(env);
    env->CallStaticVoidMethod(ourClassCoreGlobalRef, method);
    assertJni(env);
}

void JNICALL vmDeath(jvmtiEnv* jvmti, JNIEnv* env) {
    try {
        Logger::message("vmDeath: 1");
        if (!ourVmInitCalled) {
            Logger::message("vmDeath: nothing to do");
            return;
        }
        ourVmDeathCalled = true;
        Logger::message("vmDeath: 2");
        callCoreStatic(env, "runOnJvmExitTriggers");
        callCoreStatic(env, "notifyLwOnJvmExit");
        Logger::message("vmDeath: 3");
        uint64_t status = ourStatus.get();
        uint64_t allocation = status & ALLOCATION_RECORDING_MASK;
        bool anyRecording = allocation != 0 || (status & (MONITORS_BIT | CPU_PROFILING_MASK)) != 0;
        if (ourOptions.isOnExitSnapshot() || ourOptions.isOnExitMemory() || anyRecording) {
            bool memory = allocation == ALLOCATION_RECORDING_EXACT_STACKS ||
                          allocation == ALLOCATION_RECORDING_SAMPLED_STACKS || ourOptions.isOnExitMemory();
            jmethodID capture = env->GetStaticMethodID(ourClassCoreGlobalRef, "captureSnapshotOnExit", "(J)V");
            assertJni(env);
            env->CallStaticVoidMethod(ourClassCoreGlobalRef, capture, (jlong)(memory ? 1 : 0));
            assertJni(env);
        }
        Logger::message("vmDeath: 4");
        callCoreStatic(env, "stopListening");
        // DataDumpRequest was never enabled; disabling it is harmless.
        ourJVMTI->SetEventNotificationMode(JVMTI_DISABLE, (jvmtiEvent)71, nullptr);
        Logger::message("vmDeath: OK");
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}
