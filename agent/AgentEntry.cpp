// The library's door to the JVM: the exported entry points.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "agent/AgentLoad.h"
#include "agent/Wiring.h"
#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "foundation/System.h"

void doExit(int code) {
    exit(code);
}

// Once natives are registered the library must stay mapped, even if the JVM
// unloads it after a failed attach.
static void pinLibrary() {
    Dl_info info;
    if (dladdr((void*)&pinLibrary, &info) != 0 && info.dli_fname != nullptr)
        dlopen(info.dli_fname, RTLD_NOW | RTLD_NODELETE | RTLD_NOLOAD);
}

static void logEntry(const char* word, const char* options, const ZString& fullOptions) {
    ZString text(word);
    text.append(": orig_options=").append(options != nullptr ? options : "");
    text.append("\n  full_options=").append(fullOptions);
    Logger::message(text);
}

static void disposeEnvironment(jvmtiEnv*& env) {
    if (env != nullptr) env->DisposeEnvironment();
    env = nullptr;
}

extern "C" {

JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char* options, void* reserved) {
    try {
        wireAgent();
        pinLibrary();
        ZString fullOptions = getFullOptions(options);
        ourOptions.initializeLogger(fullOptions);
        logEntry("Agent_OnLoad", options, fullOptions);
        int code = agentLoadImpl(vm, fullOptions);
        if (code != LOAD_OK) doExit(code);
        return 0;
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
        fputs("Cannot start: internal error in the profiler agent; see its log\n", stderr);
        doExit(LOAD_ENV_FAILED);
    }
}

JNIEXPORT jint JNICALL Agent_OnAttach(JavaVM* vm, char* options, void* reserved) {
    try {
        wireAgent();
        pinLibrary();
        ZString fullOptions = getFullOptions(options);
        if (ourJVMTI == nullptr) ourOptions.initializeLogger(fullOptions);
        logEntry("Agent_OnAttach", options, fullOptions);
        bool alreadyLoaded = ourJVMTI != nullptr;
        ourCapabilities.add(CAPABILITY_ATTACHED_AGENT);
        int code = agentLoadImpl(vm, fullOptions);
        if (code != LOAD_OK && !alreadyLoaded) {
            disposeEnvironment(ourJVMTI);
            disposeEnvironment(ourJVMTI_ClassesLoadedBeforeAttach);
            disposeEnvironment(ourJVMTI_SnapshotTemp_Classes);
            disposeEnvironment(ourJVMTI_ClassInstanceStats);
            disposeEnvironment(ourJVMTI_MonitorProfiling);
            disposeEnvironment(ourJVMTI_Exceptions_class2classNameStrID);
            disposeEnvironment(ourJVMTI_ClassUnload_class2classNameStrID);
            disposeEnvironment(ourJVMTI_PersistentObjectIDs);
            disposeEnvironment(ourJVMTI_AllocatorMethod);
        }
        return code;
    } catch (...) {
        // The target process stays alive: an attach never takes it down.
        Logger::exceptionCaught(__FILE__, __LINE__);
        return LOAD_ATTACH_INIT_FAILED;
    }
}

JNIEXPORT jint JNICALL JVM_OnLoad(JavaVM* vm, char* options, void* reserved) {
    if (ourJVMTI != nullptr) return 0;
    fputs("Cannot start: Java 7 or newer is required. To profile on this old Java version, use corresponding old "
          "version of Corvane Java Profiler\n",
          stderr);
    doExit(LOAD_JVM_ONLOAD_ONLY);
}

JNIEXPORT void JNICALL Agent_OnUnload(JavaVM* vm) {}

// System.load in the UI's analysis process, where no agent entry point runs:
// the layers are joined all the same, so that failures reach the log.
JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void* reserved) {
    try {
        wireAgent();
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
    return JNI_VERSION_1_8;
}

}  // extern "C"
