// Starting, stopping and clearing allocation recording, and its part in
// captures and table streams. The switches take ourLock; redefining the
// Callback class and retransforming classes happen outside it.
#include "recording/AllocationRecording.h"

#include "db/DB.h"
#include "foundation/UptimeProvider.h"
#include "instrumentation/Instrumentation.h"
#include "recording/CountingSupport.h"
#include "recording/CpuTracing.h"
#include "recording/ObjectEnumerator.h"
#include "recording/Sampling.h"
#include "recording/ThreadInfo.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"

// The uptimes of the last start and stop (the last mode is with the CPU modes).
static int64_t ourAllocationRecordingStartNs = 0;
static int64_t ourAllocationRecordingStopNs = 0;

static const char* modeName(uint64_t mode) {
    if (mode == ALLOCATION_RECORDING_SAMPLED_STACKS) return "sampled stacks";
    if (mode == ALLOCATION_RECORDING_OBJECT_COUNTING) return "object counting";
    return "exact stacks";
}

static ZString refuse(const ZString& reason) {
    ZString text = ZString("Cannot start allocation recording: ") + reason;
    Logger::message(text);
    return text;
}

static bool usesHeapSampling() {
    return ourCapabilities.hasAny(CAPABILITY_HEAP_SAMPLING);
}

// The Java half's striped count of objects that counting code made.
static void setupAllocationCounterInJava(JNIEnv* env) {
    jclass core = env->FindClass(CORE_CLASS);
    jmethodID setup = core != nullptr ? env->GetStaticMethodID(core, "setupAllocationCounter", "()V") : nullptr;
    if (setup != nullptr) env->CallStaticVoidMethod(core, setup);
    if (env->ExceptionCheck()) env->ExceptionClear();
    if (core != nullptr) env->DeleteLocalRef(core);
}

static int heapSamplingInterval() {
    return ourOptions.getInternalInt("_heap_sampling_interval", 0);
}

void HeapSampling::prepare() {
    if (usesHeapSampling()) check_JVMTI_error(ourJVMTI->SetHeapSamplingInterval(heapSamplingInterval()));
}

// The JVM's allocation event that the mode needs, or none.
static jvmtiEvent allocationEventOf(uint64_t mode) {
    if (usesHeapSampling()) return JVMTI_EVENT_SAMPLED_OBJECT_ALLOC;
    if (mode == ALLOCATION_RECORDING_OBJECT_COUNTING) return (jvmtiEvent)0;
    return JVMTI_EVENT_VM_OBJECT_ALLOC;
}

ZString AllocationRecording::startAllocationRecording(JNIEnv* env, int recordEach, int sizeLimit, int64_t mode) {
    uint64_t wanted = (uint64_t)mode;
    if (wanted != ALLOCATION_RECORDING_EXACT_STACKS && wanted != ALLOCATION_RECORDING_SAMPLED_STACKS &&
        wanted != ALLOCATION_RECORDING_OBJECT_COUNTING) {
        return ZString("Bad mode: ") + ZString::fromLong(mode);
    }
    if (!ourCapabilities.hasAny(CAPABILITY_ALLOC_BCI | CAPABILITY_HEAP_SAMPLING)) {
        return ZString("Object allocation recording disabled with startup option 'disablealloc' or 'disableall'");
    }
    bool counting = wanted == ALLOCATION_RECORDING_OBJECT_COUNTING;
    if (!counting && recordEach < 0) return ZString("Incorrect value passed for 'recordEach': ") + ZString::fromLong(recordEach);
    if (!counting && sizeLimit < 0) return ZString("Incorrect value passed for 'sizeLimit': ") + ZString::fromLong(sizeLimit);
    if (counting && !CountingSupportBase::ensureUnsafeCreated(NoLock(), env)) {
        return refuse("object counting is not available in this JVM");
    }
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        uint64_t running = ourStatus.get() & ALLOCATION_RECORDING_MASK;
        if (running != 0) return refuse(ZString("already started (") + modeName(running) + ")");
        // Sampled stacks are those of the sampler: it runs for them unless it runs already.
        if (wanted == ALLOCATION_RECORDING_SAMPLED_STACKS) ourJavaSampling.startSamplerForAllocations(lock, env);
        ourObjectEnumerator.setRecordingStarted();
        if (!counting) ourAllocationRecordingSettings = {recordEach, sizeLimit};
        ThreadInfo::forEachLiveThread([](ThreadInfo* thread) { thread->resetSkipCounter(); });
        ourLastAllocationRecordingMode = mode;
        ourAllocationRecordingStartNs = ourUptimeProvider.getUptimeNs();
        ourStatus.add(wanted);
        if (usesHeapSampling()) check_JVMTI_error(ourJVMTI->SetHeapSamplingInterval(heapSamplingInterval()));
        jvmtiEvent event = allocationEventOf(wanted);
        if (event != 0) check_JVMTI_error(ourJVMTI->SetEventNotificationMode(JVMTI_ENABLE, event, nullptr));
    }
    if (usesHeapSampling() && heapSamplingInterval() == 0) {
        // A running thread looks at the interval only when it takes a new
        // allocation buffer: a collection makes every thread take one, so
        // that from now on each object is seen.
        check_JVMTI_error(ourJVMTI->ForceGarbageCollection());
    }
    if (!usesHeapSampling()) {
        if (counting) setupAllocationCounterInJava(env);
        redefineCallback(env);
        retransformClassesLoadedBeforeAgentAttached(env);
    }
    ZString text = ZString("Allocation recording started (") + modeName(wanted) + ")";
    if (!counting) {
        text.append(" recordEach=").appendLong(recordEach).append(" sizeLimit=").appendLong(sizeLimit);
    }
    Logger::message(text);
    return ZString();
}

void AllocationRecording::stopAllocationRecording(JNIEnv* env) {
    uint64_t running;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        running = ourStatus.get() & ALLOCATION_RECORDING_MASK;
        if (running == 0) return;
        ourStatus.remove(ALLOCATION_RECORDING_MASK);
        ourAllocationRecordingStopNs = ourUptimeProvider.getUptimeNs();
        jvmtiEvent event = allocationEventOf(running);
        if (event != 0) check_JVMTI_error(ourJVMTI->SetEventNotificationMode(JVMTI_DISABLE, event, nullptr));
    }
    if (!usesHeapSampling()) redefineCallback(env);
    Logger::message(ZString("Allocation recording stopped (") + modeName(running) + ")");
}

void AllocationRecording::clearAllocationDataImpl(const LockHolder& lock) {
    CpuTracingPseudoLockScope pseudoLock(lock);
    DB* db = KZT_DB();
    ThreadInfo::forEachLiveThread([&](ThreadInfo* thread) {
        thread->playEvents(lock);
        thread->resetSkipCounter();
    });
    ourObjectEnumerator.forgetAges(lock);
    db->getAllocInfoTable()->clearTable();
    db->markTableCleared(TABLE_ALLOC_INFO);
    AllocObjectCounting::clearCounts(lock);
}

void AllocationRecording::beginCapture(const LockHolder& lock) {
    CallCounting::applyCounts(lock);
    AllocObjectCounting::applyCounts(lock);
}

void AllocationRecording::flushCollectedObjectAges(const LockHolder& lock) {
    // After the events, which the capture played first.
    ourObjectEnumerator.flushCollectedObjectAgesToDB(lock);
}

void AllocationRecording::setRecordingTimeProperties(const LockHolder& lock) {
    if (ourLastAllocationRecordingMode == 0) return;
    DB* db = KZT_DB();
    bool running = (ourStatus.get() & ALLOCATION_RECORDING_MASK) != 0;
    db->setLongProperty(lock, "kzt.allocation.recording.start.ns", ourAllocationRecordingStartNs);
    db->setLongProperty(lock, "kzt.allocation.recording.end.ns",
                        running ? ourUptimeProvider.getUptimeNs() : ourAllocationRecordingStopNs);
}

void AllocationRecording::resetForTests() {
    ourLastAllocationRecordingMode = 0;
    ourAllocationRecordingStartNs = 0;
    ourAllocationRecordingStopNs = 0;
    ourAllocationRecordingSettings = {10, 4096};
}
