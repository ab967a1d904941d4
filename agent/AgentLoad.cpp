// agentLoadImpl: the single load routine behind Agent_OnLoad and
// Agent_OnAttach, in the exact order of its steps.
#include <cstdio>
#include <cstring>

#include "agent/AgentLoad.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "foundation/System.h"
#include "foundation/ZLock.h"
#include "recording/AllocationRecording.h"
#include "probes/Probes.h"

const char* const OLD_JAVA_MESSAGE =
    "Cannot start: Java 7 or newer is required. To profile on this old Java version, use corresponding old "
    "version of Corvane Java Profiler";

static ZString hex8(int value) {
    char text[16];
    snprintf(text, sizeof(text), "%08X", (unsigned)value);
    return ZString(text);
}

static void failToStderr(const ZString& text) {
    Logger::message(text, stderr);
}

static void dumpSystemProperties() {
    const char* dashes = "------------------------------------------------------------";
    Logger::message(dashes);
    Logger::message("Dumping all system properties via JVMTI");
    Logger::message(dashes);
    jint count = 0;
    char** names = nullptr;
    if (ourJVMTI->GetSystemProperties(&count, &names) == JVMTI_ERROR_NONE) {
        ZVectorSafe<ZString> lines;
        for (int i = 0; i < count; i++) {
            lines.push(ZString(names[i]) + "=" + getSystemProperty(names[i]));
            deallocate(names[i]);
        }
        deallocate(names);
        lines.sort();
        for (int i = 0; i < lines.getSize(); i++) Logger::message(lines[i]);
    }
    Logger::message(dashes);
}

// Requests one capability. A required one is requested whatever the JVM
// offers; the failure then comes from AddCapabilities.
#define REQUEST_CAPABILITY(field, required, missingText)       \
    do {                                                       \
        if (!potential.field) Logger::message(missingText);    \
        if (potential.field || (required)) wanted.field = 1;   \
    } while (0)

static void requestCapabilities(jvmtiCapabilities& wanted, const jvmtiCapabilities& potential) {
    REQUEST_CAPABILITY(can_tag_objects, true, "error: can_tag_objects: required capability is not available");
    REQUEST_CAPABILITY(can_generate_object_free_events, true,
                       "error: can_generate_object_free_events: required capability is not available");
    REQUEST_CAPABILITY(can_generate_all_class_hook_events, false,
                       "can_generate_all_class_hook_events: optional capability is not available");
    if (ourOptions.isDebug("bci")) {
        REQUEST_CAPABILITY(can_generate_early_class_hook_events, false,
                           "can_generate_early_class_hook_events: optional capability is not available");
    }
    REQUEST_CAPABILITY(can_redefine_classes, true, "error: can_redefine_classes: required capability is not available");

    if (!potential.can_generate_exception_events) {
        ourCapabilities.add(CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE);
        Logger::message("can_generate_exception_events: optional capability is not available");
    } else if (ourOptions.getExceptionsMode() == EXCEPTIONS_MODE_DEFAULT && ourIsIbm) {
        ourCapabilities.add(CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE | CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE_IBM);
        Logger::message("can_generate_exception_events: disabled by default on IBM - specify startup option "
                        "\"exceptions=on\" or \"exceptions=off\" to override");
    } else if (ourOptions.getExceptionsMode() == EXCEPTIONS_MODE_DISABLED) {
        ourCapabilities.add(CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE | CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE_BY_OPTION);
        Logger::message("can_generate_exception_events: explicitly disabled with a startup option");
    } else {
        wanted.can_generate_exception_events = 1;
    }
    if ((ourCapabilities.get() & CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE) && (ourCapabilities.get() & CAPABILITY_TRACING)) {
        ourProbe2ActivityMode.put(ZString(CPU_TRACING_SUPPORT_PROBE), PROBE_ACTIVITY_MODE_ON);
    }

    REQUEST_CAPABILITY(can_generate_vm_object_alloc_events, true,
                       "error: can_generate_vm_object_alloc_events: required capability is not available");
    if (ourIsIbm && !ourOptions.isInternalOption("_with_local_vars")) {
        Logger::message("can_access_local_variables: disabled by default on IBM - specify startup option "
                        "\"_with_local_vars\" to override");
    } else {
        REQUEST_CAPABILITY(can_access_local_variables, false,
                           "can_access_local_variables: optional capability is not available");
    }
    jvmtiJlocationFormat format;
    jvmtiError formatError = ourJVMTI->GetJLocationFormat(&format);
    if (formatError != JVMTI_ERROR_NONE) {
        Logger::message(ZString("warning: GetJLocationFormat failed: ") + ZString::fromLong(formatError));
    } else if (format != JVMTI_JLOCATION_JVMBCI) {
        Logger::message(ZString("warning: GetJLocationFormat returned ") + ZString::fromLong(format));
    } else {
        REQUEST_CAPABILITY(can_get_line_numbers, false, "can_get_line_numbers: optional capability is not available");
    }
    REQUEST_CAPABILITY(can_get_source_file_name, false,
                       "can_get_source_file_name: optional capability is not available");
    // The CPU clock of threads that were running before an attach.
    REQUEST_CAPABILITY(can_get_thread_cpu_time, false,
                       "can_get_thread_cpu_time: optional capability is not available");
    // With a debugger present the capability is left to the debugger.
    if (!ourOptions.isWithDebugger() && potential.can_suspend) {
        wanted.can_suspend = 1;
    } else {
        ourCapabilities.add(CAPABILITY_NO_SUSPEND);
        Logger::message(ZString("can_suspend: optional capability is not available; is_debugger=") +
                        (ourOptions.isWithDebugger() ? "1" : "0"));
    }
    if (ourCapabilities.get() & CAPABILITY_ASYNC_SAMPLING) wanted.can_generate_compiled_method_load_events = 1;
    if (ourCapabilities.get() & CAPABILITY_HEAP_SAMPLING) {
        wanted.can_generate_sampled_object_alloc_events = 1;
        Logger::message("heap_sampling: will be used instead of BCI");
    }
    REQUEST_CAPABILITY(can_generate_monitor_events, true,
                       "error: can_generate_monitor_events: required capability is not available");
    REQUEST_CAPABILITY(can_get_monitor_info, true, "error: can_get_monitor_info: required capability is not available");
    REQUEST_CAPABILITY(can_set_native_method_prefix, true,
                       "error: can_set_native_method_prefix: required capability is not available");
    REQUEST_CAPABILITY(can_retransform_classes, true,
                       "error: can_retransform_classes: required capability is not available");
}

// Registers callbacks with the size of this JVM's callback table, falling
// back to the table of JVMs that predate sampled allocation events.
static void setEventCallbacks(jvmtiEnv* env, const jvmtiEventCallbacks& callbacks) {
    jvmtiError error = env->SetEventCallbacks(&callbacks, 296);
    if (error == JVMTI_ERROR_NONE) return;
    if (ourCapabilities.get() & CAPABILITY_HEAP_SAMPLING) check_JVMTI_error(error);
    check_JVMTI_error(env->SetEventCallbacks(&callbacks, 280));
}

static void createTaggableEnvironments() {
    ourJVMTI_SnapshotTemp_Classes = createTaggableJVMTIEnv(false);
    ourJVMTI_ClassInstanceStats = createTaggableJVMTIEnv(false);
    ourJVMTI_MonitorProfiling = createTaggableJVMTIEnv(false);
    ourJVMTI_Exceptions_class2classNameStrID = createTaggableJVMTIEnv(false);

    jvmtiEventCallbacks callbacks;
    ourJVMTI_ClassUnload_class2classNameStrID = createTaggableJVMTIEnv(true);
    memset(&callbacks, 0, sizeof(callbacks));
    callbacks.ObjectFree = object_free_handler_JVMTI_ClassUnload;
    setEventCallbacks(ourJVMTI_ClassUnload_class2classNameStrID, callbacks);
    check_JVMTI_error(ourJVMTI_ClassUnload_class2classNameStrID->SetEventNotificationMode(
        JVMTI_ENABLE, JVMTI_EVENT_OBJECT_FREE, nullptr));

    ourJVMTI_PersistentObjectIDs = createTaggableJVMTIEnv(true);
    memset(&callbacks, 0, sizeof(callbacks));
    callbacks.ObjectFree = object_free_handler_JVMTI_PersistentObjectIDs;
    setEventCallbacks(ourJVMTI_PersistentObjectIDs, callbacks);
    check_JVMTI_error(
        ourJVMTI_PersistentObjectIDs->SetEventNotificationMode(JVMTI_ENABLE, JVMTI_EVENT_OBJECT_FREE, nullptr));

    ourJVMTI_AllocatorMethod = createTaggableJVMTIEnv(false);
}

jvmtiEnv* createTaggableJVMTIEnv(bool withObjectFree) {
    jvmtiEnv* env = nullptr;
    if (ourVM->GetEnv((void**)&env, 0x30010000) != JNI_OK || env == nullptr) {
        failToStderr("Cannot start: Unable to create JVMTI environment");
        doExit(LOAD_ENV_FAILED);
    }
    jvmtiCapabilities capabilities;
    memset(&capabilities, 0, sizeof(capabilities));
    capabilities.can_tag_objects = 1;
    if (withObjectFree) capabilities.can_generate_object_free_events = 1;
    if (env->AddCapabilities(&capabilities) != JVMTI_ERROR_NONE) {
        failToStderr(withObjectFree ? "Cannot start: Unable to create JVMTI environment with can_tag_objects and "
                                      "can_generate_object_free_events capabilities"
                                    : "Cannot start: Unable to create JVMTI environment with can_tag_objects capability");
        doExit(LOAD_ENV_CAPABILITIES_FAILED);
    }
    return env;
}

static void setMainEventCallbacks() {
    jvmtiEventCallbacks callbacks;
    memset(&callbacks, 0, sizeof(callbacks));
    callbacks.VMInit = vmInit;
    callbacks.VMStart = vmStart;
    callbacks.VMDeath = vmDeath;
    callbacks.ThreadEnd = threadEnd;
    callbacks.ThreadStart = threadStart;
    callbacks.ObjectFree = object_free_handler;
    callbacks.VMObjectAlloc = vm_object_alloc_handler;
    callbacks.ClassFileLoadHook = class_file_load_hook_handler;
    callbacks.ClassLoad = class_load_handler;
    callbacks.ClassPrepare = class_prepare_handler;
    callbacks.MonitorContendedEnter = monitorContendedEnter;
    callbacks.MonitorContendedEntered = monitorContendedEntered;
    callbacks.MonitorWait = monitorWait;
    callbacks.MonitorWaited = monitorWaited;
    if (!(ourCapabilities.get() & CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE)) {
        callbacks.Exception = exception_handler;
        callbacks.ExceptionCatch = exception_catch;
    }
    if (ourCapabilities.get() & CAPABILITY_ASYNC_SAMPLING) {
        callbacks.CompiledMethodLoad = compiled_method_load;
        callbacks.CompiledMethodUnload = compiled_method_unload;
        callbacks.DynamicCodeGenerated = dynamic_code_generated;
    }
    if (ourCapabilities.get() & CAPABILITY_HEAP_SAMPLING) callbacks.SampledObjectAlloc = sampled_object_alloc_handler;
    setEventCallbacks(ourJVMTI, callbacks);
}

static void enableEvent(jvmtiEvent event) {
    check_JVMTI_error(ourJVMTI->SetEventNotificationMode(JVMTI_ENABLE, event, nullptr));
}

static void enableMainEvents() {
    if (!isAttaching()) {
        enableEvent(JVMTI_EVENT_VM_INIT);
        enableEvent(JVMTI_EVENT_VM_START);
    }
    enableEvent(JVMTI_EVENT_VM_DEATH);
    enableEvent(JVMTI_EVENT_CLASS_FILE_LOAD_HOOK);
    enableEvent(JVMTI_EVENT_CLASS_LOAD);
    enableEvent(JVMTI_EVENT_CLASS_PREPARE);
    if (ourCapabilities.get() & CAPABILITY_ASYNC_SAMPLING) {
        enableEvent(JVMTI_EVENT_COMPILED_METHOD_LOAD);
        enableEvent(JVMTI_EVENT_COMPILED_METHOD_UNLOAD);
        enableEvent(JVMTI_EVENT_DYNAMIC_CODE_GENERATED);
    }
    if (!(ourCapabilities.get() & CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE)) {
        enableEvent(JVMTI_EVENT_EXCEPTION);
        enableEvent(JVMTI_EVENT_EXCEPTION_CATCH);
    }
    enableEvent(JVMTI_EVENT_OBJECT_FREE);
    enableEvent(JVMTI_EVENT_THREAD_END);
    enableEvent(JVMTI_EVENT_THREAD_START);
}

static void addClassPathElements(const ZString& archivePath) {
    check_JVMTI_error(ourJVMTI->AddToBootstrapClassLoaderSearch(archivePath.c_str()));
    ourProbeClassPathElements.push(archivePath);
    const ZVectorSafe<ZString>& bootElements = ourOptions.getProbeBootClassPath();
    for (int i = 0; i < bootElements.getSize(); i++) {
        check_JVMTI_error(ourJVMTI->AddToBootstrapClassLoaderSearch(bootElements[i].c_str()));
        ourProbeClassPathElements.push(bootElements[i]);
    }
    const ZVectorSafe<ZString>& systemElements = ourOptions.getProbeClassPath();
    for (int i = 0; i < systemElements.getSize(); i++) {
        check_JVMTI_error(ourJVMTI->AddToSystemClassLoaderSearch(systemElements[i].c_str()));
        ourProbeClassPathElements.push(systemElements[i]);
    }
}

// The classes loaded so far that the JVM can retransform, tagged 1 in their
// own tag space: the hook never saw them, and a later start of tracing or
// allocation recording hands them back to the JVM.
static void tagClassesLoadedBeforeAttach(JNIEnv* env) {
    jint count = 0;
    JvmtiMemory<jclass> loaded;
    check_JVMTI_error(ourJVMTI->GetLoadedClasses(&count, loaded.out()));
    for (int i = 0; i < count; i++) {
        jboolean modifiable = JNI_FALSE;
        // Arrays and primitive types cannot be retransformed, and one in a batch fails it whole.
        if (ourJVMTI->IsModifiableClass(loaded.get()[i], &modifiable) == JVMTI_ERROR_NONE && modifiable) {
            ourJVMTI_ClassesLoadedBeforeAttach->SetTag(loaded.get()[i], 1);
        }
        env->DeleteLocalRef(loaded.get()[i]);
    }
}

// The steps that Agent_OnLoad leaves to VMStart and VMInit run inline here.
static int attachSteps(JavaVM* vm) {
    Logger::message("on_attach: 1");
    JNIEnv* env = nullptr;
    if (vm->GetEnv((void**)&env, JNI_VERSION_1_4) != JNI_OK || env == nullptr) return LOAD_ATTACH_NO_JNI;
    if (ourOptions.isInternalOption("_advance_generation_on_attach")) {
        Logger::message("will advance generation...");
        {
            LockHolder holder(&ourLock, LOCK_SITE);
            advanceGenerationOnLoad(holder, "Agent attached");
        }
        Logger::message("generation advanced");
    }
    Logger::message("on_attach: 2");
    agentStart(env);
    if (!agentInit(env)) return LOAD_ATTACH_INIT_FAILED;
    Logger::message("on_attach: 3");
    if (ourCapabilities.get() & (CAPABILITY_TRACING | CAPABILITY_ALLOC_BCI)) {
        ourJVMTI_ClassesLoadedBeforeAttach = createTaggableJVMTIEnv(false);
        tagClassesLoadedBeforeAttach(env);
    }
    Logger::message("on_attach: 4");
    Probes::retransformClassesForChangedProbes(env, "apply probes after attach");
    Logger::message("on_attach: 5");
    jint threadCount = 0;
    jthread* threads = nullptr;
    if (ourJVMTI->GetAllThreads(&threadCount, &threads) == JVMTI_ERROR_NONE) {
        for (int i = 0; i < threadCount; i++) {
            jint state = 0;
            if (ourJVMTI->GetThreadState(threads[i], &state) == JVMTI_ERROR_NONE && (state & JVMTI_THREAD_STATE_ALIVE))
                threadStartImpl(env, threads[i], 0, 0);
        }
        deallocate(threads);
    }
    Logger::message("on_attach: 6");
    onStartProfiling(env);
    Logger::message("on_attach: OK");
    return LOAD_OK;
}

int agentLoadImpl(JavaVM* vm, const ZString& fullOptions) {
    ourVM = vm;
    if (ourJVMTI != nullptr) {
        Logger::message("Agent already loaded");
        return LOAD_OK;
    }
    jint envResult = vm->GetEnv((void**)&ourJVMTI, 0x30010100);
    if (envResult != JNI_OK || ourJVMTI == nullptr) {
        ourJVMTI = nullptr;
        failToStderr(ZString("Cannot start: unable to create JVMTI environment, error=") + ZString::fromLong(envResult));
        return LOAD_NO_JVMTI;
    }

    jint version = 0;
    ourJVMTI->GetVersionNumber(&version);
    Logger::message(ZString("jvmtiVersion: ") + hex8(version));
    if (version < 0x30010155) {
        failToStderr(OLD_JAVA_MESSAGE);
        return LOAD_JVMTI_TOO_OLD;
    }
    jvmtiPhase phase;
    ourJVMTI->GetPhase(&phase);
    Logger::message(ZString("phase: ") + ZString::fromLong(phase));

    ZString vendor = getSystemProperty("java.vm.vendor");
    ZString vmVersion = getSystemProperty("java.vm.version");
    ZString specVersion = getSystemProperty("java.vm.specification.version");
    ZString info = getSystemProperty("java.vm.info");
    Logger::message(ZString("vendor: ") + vendor);
    Logger::message(ZString("version: ") + vmVersion);
    Logger::message(ZString("specVersion: ") + specVersion);
    Logger::message(ZString("info: ") + info);

    ourIsOpenJ9 = vendor.contains("OpenJ9");
    ourIsIbm = vendor.startsWith("IBM") || ourIsOpenJ9;
    ourIsJava9orNewer = version >= 0x30090000;
    bool tooOld = isTooOldJvm(vendor, vmVersion, version, ourIsIbm, ourIsIbm ? getSystemProperty("java.class.version") : ZString());

    jvmtiCapabilities potential;
    memset(&potential, 0, sizeof(potential));
    ourJVMTI->GetPotentialCapabilities(&potential);
    if (potential.can_generate_sampled_object_alloc_events) {
        ourCapabilities.add(CAPABILITY_HEAP_SAMPLING);
        Logger::message("heap_sampling: capability is available");
    } else {
        Logger::message("heap_sampling: capability is not available");
    }
    Logger::message(ZString("asynchronous sampling: unsupported on ") + getPresentablePlatformName());

    if (!ourOptions.applyOptions(fullOptions)) return LOAD_INVALID_OPTIONS;
    if (ourOptions.isInternalOption("_dump_properties")) dumpSystemProperties();
    if (tooOld) {
        failToStderr(OLD_JAVA_MESSAGE);
        return LOAD_JAVA_TOO_OLD;
    }
    int major = ourIsJava9orNewer ? detectJavaMajorVersion(vmVersion, specVersion) : 0;
    if (major > MAX_SUPPORTED_JAVA_MAJOR && !ourOptions.isInternalOption("_no_java_version_check")) {
        failToStderr(ZString("Cannot start: Java version ") + vmVersion + " is not supported. " +
                     "Please check whether a newer version of Corvane Java Profiler that supports it exists. You may "
                     "also disable the version check by specifying the startup option '_no_java_version_check' at "
                     "your own risk because we do not guarantee it would run trouble free.");
        return LOAD_JAVA_TOO_NEW;
    }
    ourIsJava12orNewer = major >= 12;
    if (ourOptions.isInternalOption("_print_java_detail")) {
        printf("ourIsJava9orNewer=%d\nourIsJava12orNewer=%d\nourIsIbm=%d\n", ourIsJava9orNewer, ourIsJava12orNewer,
               ourIsIbm);
        fflush(stdout);
    }

    createDatabase(ourOptions.getTelemetryLimit());

    jvmtiCapabilities wanted;
    memset(&wanted, 0, sizeof(wanted));
    requestCapabilities(wanted, potential);
    jvmtiError capabilityError = ourJVMTI->AddCapabilities(&wanted);
    if (capabilityError != JVMTI_ERROR_NONE) {
        failToStderr(ZString("Cannot start: the JVM does not provide required profiling capabilities (error code=") +
                     ZString::fromLong(capabilityError) + ").\n" +
                     "\nMost likely, you have configured JVM to use a garbage collector that does not support heap "
                     "profiling.\nPlease examine specified JVM options. Using default garbage collector will solve "
                     "the problem.\n");
        return LOAD_CAPABILITIES_FAILED;
    }

    createTaggableEnvironments();
    HeapSampling::prepare();
    setMainEventCallbacks();
    enableMainEvents();
    check_JVMTI_error(ourJVMTI->SetNativeMethodPrefix(NATIVE_METHOD_PREFIX));

    ZString archivePath = writeCallbackJar();
    if (archivePath.isEmpty()) return LOAD_ARCHIVE_FAILED;
    addClassPathElements(archivePath);
    Probes::readIgnoredPrefixesAndBCIFilter();

    ZString summary("JVMTI ");
    summary.append(hex8(version)).append("; ").append(vmVersion).append("; ").append(vendor).append("; ").append(info);
    if (ourIsIbm) summary.append("; [IBM]");
    if (ourIsJava9orNewer) summary.append("; [Java 9 or newer]");
    Logger::message(summary);
    Probes::createProbesAtStart(isAttaching());

    if (!isAttaching()) return LOAD_OK;
    return attachSteps(vm);
}
