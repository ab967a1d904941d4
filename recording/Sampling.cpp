#include "recording/Sampling.h"

#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "db/DB.h"
#include "db/ZFrameStorage.h"
#include "db/ZMethod.h"
#include "foundation/System.h"
#include "foundation/UptimeProvider.h"
#include "recording/CpuTracing.h"
#include "recording/SamplingSettings.h"
#include "recording/StackCapture.h"
#include "recording/ThreadInfo.h"
#include "recording/TracingSettings.h"

JavaSampling ourJavaSampling;
bool JavaSampling::ourSamplingThreadStarted = false;

static const int MAX_FRAMES_PER_THREAD = 10000;
static const int IDLE_WAIT_MS = 100;
// A larger CPU delta is a clock jump (a negative one looks larger still).
static const uint64_t MAX_CPU_DELTA_NS = 100000000000ULL;

// The sampler thread waits here rather than in a native sleep, so that the
// JVM doesn't wait for it to wake at exit.
static jrawMonitorID ourSamplerMonitor = nullptr;

ZString AsyncSampler::start(int64_t mode, const SamplingSettings& settings) {
    return ZString(getPresentablePlatformName()) + " does not support asynchronous sampling";
}

bool JavaSampling::isSamplerWanted(uint64_t status) {
    return (status & CPU_PROFILING_MASK) == CPU_SAMPLING || (status & 0x6002) == 0x2002;
}

Sampler* JavaSampling::getSampler(uint64_t status) {
    uint64_t kind = status & SAMPLING_MODE_MASK;
    if (kind == 0) return &mySyncSampler;
    KZT_ASSERT(kind == SAMPLING_MODE_ASYNC_CPU || kind == SAMPLING_MODE_ASYNC_PERIODIC);
    return &myAsyncSampler;
}

ZString JavaSampling::startSampler(const LockHolder& lock, JNIEnv* env, int64_t kind, const ZString* settingsText,
                                   SamplingSettings* settings) {
    if (kind == 0) Logger::message("starting sampling: synchronous");
    else if (kind == (int64_t)SAMPLING_MODE_ASYNC_CPU) Logger::message("starting sampling: asynchronous, cpu");
    else if (kind == (int64_t)SAMPLING_MODE_ASYNC_PERIODIC) Logger::message("starting sampling: asynchronous, periodic");
    else return ZString("Unknown sampling mode: ") + ZString::fromLong(kind);
    settings->setFromText(getSamplingSettingsText(settingsText));
    ZString error = getSampler((uint64_t)kind)->start(kind, *settings);
    if (!error.isEmpty()) return error;
    if (!ourSamplingThreadStarted) {
        check_JVMTI_error(ourJVMTI->CreateRawMonitor(SAMPLER_THREAD_NAME, &ourSamplerMonitor));
        jthread thread = createThread(env, SAMPLER_THREAD_NAME);
        check_JVMTI_error(ourJVMTI->RunAgentThread(thread, sampler_thread_entry, nullptr, JVMTI_THREAD_MAX_PRIORITY));
        env->DeleteLocalRef(thread);
        ourSamplingThreadStarted = true;
    }
    ourStatus.set((ourStatus.get() & ~SAMPLING_MODE_MASK) | ((uint64_t)kind & SAMPLING_MODE_MASK));
    return ZString();
}

ZString JavaSampling::startSamplerForCpu(const LockHolder& lock, JNIEnv* env, int64_t kind, const ZString* settingsText,
                                         SamplingSettings* settings) {
    if (isSamplerWanted(ourStatus.get())) stopSampler(lock);
    ZString error = startSampler(lock, env, kind, settingsText, settings);
    if (!error.isEmpty() && isSamplerWanted(ourStatus.get())) {
        ZString fallback = startSampler(lock, env, 0, settingsText, settings);
        KZT_ASSERT(fallback.isEmpty());
    }
    return error;
}

void JavaSampling::startSamplerForAllocations(const LockHolder& lock, JNIEnv* env) {
    if (isSamplerWanted(ourStatus.get())) return;
    SamplingSettings settings;
    ZString error = startSampler(lock, env, 0, nullptr, &settings);
    KZT_ASSERT(error.isEmpty());
}

void JavaSampling::stopSampler(const LockHolder& lock) {
    Logger::message("stop sampling");
    getSampler(ourStatus.get())->stop();
    ourStatus.remove(SAMPLING_MODE_MASK);
}

static void waitMs(int ms) {
    if (ourJVMTI->RawMonitorEnter(ourSamplerMonitor) != JVMTI_ERROR_NONE) return;
    ourJVMTI->RawMonitorWait(ourSamplerMonitor, ms);
    ourJVMTI->RawMonitorExit(ourSamplerMonitor);
}

// All live threads' stacks, given one by one with their ThreadInfo; false
// when the VM is going down.
template <typename F>
static bool forEachSampledStack(const LockHolder& lock, JNIEnv* env, F f) {
    JvmtiMemory<jvmtiStackInfo> memory;
    jint count = 0;
    jvmtiError error = ourJVMTI->GetAllStackTraces(MAX_FRAMES_PER_THREAD, memory.out(), &count);
    if (error == JVMTI_ERROR_WRONG_PHASE) return false;
    check_JVMTI_error(error);
    jvmtiStackInfo* stacks = memory.get();
    for (int i = 0; i < count; i++) {
        const jvmtiStackInfo& stack = stacks[i];
        if ((stack.state & JVMTI_THREAD_STATE_ALIVE) == 0) continue;
        // Names come through JVMTI, not Java: safe under ourLock.
        ThreadInfo* thread = getThreadInfoJvmti(env, stack.thread);
        if (thread != nullptr) f(thread, stack);
    }
    for (int i = 0; i < count; i++) env->DeleteLocalRef(stacks[i].thread);
    return true;
}

void SyncSampler::doSample(const LockHolder& lock, JNIEnv* env) {
    int64_t now = getTimeNs();
    bool cpuSampling = (ourStatus.get() & CPU_PROFILING_BIT) != 0;
    bool live = forEachSampledStack(lock, env, [&](ThreadInfo* thread, const jvmtiStackInfo& stack) {
        if (thread->isExcludedFromTracing()) return;
        int frame = StackCapture::fillCurrentFrameJVMTIForSampling(lock, env, stack);
        thread->setLastSampleFrame(frame);
        // The thread is alive and can't finish its end event while we hold
        // ourLock, so its CPU clock is still valid.
        if (cpuSampling) doThreadSample(lock, thread, frame, thread->getThreadCpuTimeNs(), now);
    });
    if (live) return;
    // The VM is going down: whatever comes later must not see a huge delta.
    for (int slot = 0; slot < ourAllThreadInfos.getCapacity(); slot++) {
        if (ourAllThreadInfos.isFull(slot)) ourAllThreadInfos.keyAt(slot)->setLastSampleTimes(0, 0);
    }
}

void doThreadSample(const LockHolder& lock, ThreadInfo* thread, int frame, int64_t cpuNow, int64_t wallNow) {
    int64_t lastCpu = thread->getLastCpuSampleTime();
    int64_t lastWall = thread->getLastWallSampleTime();
    int64_t cpuDelta = lastCpu == 0 ? 0 : cpuNow - lastCpu;
    int64_t wallDelta = lastWall == 0 ? 0 : wallNow - lastWall;
    thread->setLastSampleTimes(wallNow, cpuNow);
    if (frame <= 0) return;
    if ((uint64_t)cpuDelta > MAX_CPU_DELTA_NS) cpuDelta = 0;
    // A thread can't spend more CPU than wall time.
    if (wallDelta < cpuDelta) wallDelta = cpuDelta;
    int generation = KZT_DB()->getCurrentGeneration();
    // The caller of a wall-timed method has spent that wall time as well.
    bool wallTime = Filter::ourAlwaysWallTime;
    for (int f = frame; f > 0; f = ZFrameStorage::getParent(f)) {
        if (!wallTime) wallTime = (ZMethod::getFlags(ZFrameStorage::getMethodByFrame(f)) & METHOD_FLAG_WALL_TIME) != 0;
        CpuProfilingRecord* record = thread->getCpuProfilingRecord(lock, f);
        record->myTime += wallTime ? wallDelta : cpuDelta;
        record->myStamp = generation;
    }
}

void sampleThreadStatesJVMTI(const LockHolder& lock, JNIEnv* env, TelemetryRecord* row) {
    forEachSampledStack(lock, env, [&](ThreadInfo* thread, const jvmtiStackInfo& stack) {
        if (thread->isExcludedFromSampling()) {
            thread->setLastState(-1, -1, -1);
            return;
        }
        _ThreadState state;
        doThreadStateSample(thread, StackCapture::fillCurrentFrameJVMTIForSampling(lock, env, stack), &state);
        state.myState = stack.state;
        row->myThreadStates.push(state);
    });
}

void doThreadStateSample(ThreadInfo* thread, int frame, _ThreadState* state) {
    state->myTRN = thread->getTRN();
    state->myFrame = frame < 0 ? 0 : frame;
    state->myCpuTime = thread->getThreadCpuTimeNs();
    if (state->myFrame != thread->getLastStateFrame() || thread->getLastStateUptime() == -1) {
        thread->setLastState(state->myFrame, state->myCpuTime, ourUptimeProvider.getUptimeNs());
    }
}

// The sampler thread never returns to Java: whatever local references a
// round makes, also on an error, go with its frame.
class LocalFrame {
public:
    explicit LocalFrame(JNIEnv* env) : myEnv(env), myPushed(env->PushLocalFrame(LOCAL_REFERENCES) == 0) {}
    ~LocalFrame() {
        if (myPushed) myEnv->PopLocalFrame(nullptr);
    }
    LocalFrame(const LocalFrame&) = delete;
    LocalFrame& operator=(const LocalFrame&) = delete;
    bool isPushed() const { return myPushed; }

private:
    static const int LOCAL_REFERENCES = 64;
    JNIEnv* myEnv;
    bool myPushed;
};

// Once the JVM runs its shutdown hooks the sampler asks for no more stacks:
// the JVM flushes its object-free events at exit while blocking safepoints,
// and a stack request (a safepoint) then would hang it. java.lang.Shutdown
// keeps the hook it runs, -1 before; a JVM without that field is never seen
// exiting.
static bool isJvmShuttingDown(JNIEnv* env) {
    static jclass shutdown = nullptr;
    static jfieldID runningHook = nullptr;
    static bool unknown = false;
    if (unknown) return false;
    if (runningHook == nullptr) {
        jclass found = env->FindClass("java/lang/Shutdown");
        jfieldID field = found != nullptr ? env->GetStaticFieldID(found, "currentRunningHook", "I") : nullptr;
        if (field == nullptr) {
            env->ExceptionClear();
            if (found != nullptr) env->DeleteLocalRef(found);
            unknown = true;
            return false;
        }
        shutdown = (jclass)env->NewGlobalRef(found);
        env->DeleteLocalRef(found);
        runningHook = field;
    }
    return env->GetStaticIntField(shutdown, runningHook) >= 0;
}

// One round: false when the sampler isn't wanted (the caller waits).
static bool sampleOnce(JNIEnv* env) {
    if (!JavaSampling::isSamplerWanted(ourStatus.get()) || isJvmShuttingDown(env)) return false;
    LocalFrame frame(env);
    if (!frame.isPushed()) {
        env->ExceptionClear();
        return false;
    }
    LockHolder lock(&ourLock, LOCK_SITE);
    // A stop or the exit may have come between the test and the lock.
    if (!JavaSampling::isSamplerWanted(ourStatus.get()) || isJvmShuttingDown(env)) return false;
    ourJavaSampling.getSampler(ourStatus.get())->doSample(lock, env);
    return true;
}

void JNICALL sampler_thread_entry(jvmtiEnv* jvmti, JNIEnv* env, void* arg) {
    if (jvmti != ourJVMTI) return;
    while (true) {
        int waitTime = IDLE_WAIT_MS;
        try {
            if (sampleOnce(env)) waitTime = ourSamplingSettings.mySamplingPeriodMs;
        } catch (...) {
            Logger::exceptionCaught(__FILE__, __LINE__);
        }
        waitMs(waitTime);
    }
}
