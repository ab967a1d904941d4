// CPU sampling: an agent thread wakes each period, takes every thread's
// stack through JVMTI under ourLock and charges the time since the thread's
// last sample to the frames of its stack. Thread-state telemetry uses the
// same stack walk.
#pragma once

#include <jni.h>
#include <jvmti.h>
#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/ZString.h"

class SamplingSettings;
class ThreadInfo;
struct TelemetryRecord;
struct _ThreadState;

class Sampler {
public:
    virtual ~Sampler() {}
    // Empty on success, else the text for the user.
    virtual ZString start(int64_t mode, const SamplingSettings& settings) = 0;
    virtual void stop() = 0;
    virtual void doSample(const LockHolder& lock, JNIEnv* env) = 0;
};

// Stacks of all threads through JVMTI, at safepoints.
class SyncSampler : public Sampler {
public:
    ZString start(int64_t mode, const SamplingSettings& settings) override { return ZString(); }
    void stop() override {}
    void doSample(const LockHolder& lock, JNIEnv* env) override;
};

// Needs an asynchronous stack walker, which this platform lacks.
class AsyncSampler : public Sampler {
public:
    ZString start(int64_t mode, const SamplingSettings& settings) override;
    void stop() override {}
    void doSample(const LockHolder& lock, JNIEnv* env) override {}
};

class JavaSampling {
public:
    static bool ourSamplingThreadStarted;

    // `kind`: the sampling bits of the status word (0 synchronous). Logs the
    // kind, then reads the settings (`settingsText` null: the settings file)
    // into `settings`, which the sampler and the filters then share.
    ZString startSampler(const LockHolder& lock, JNIEnv* env, int64_t kind, const ZString* settingsText,
                         SamplingSettings* settings);
    // Stops a running sampler first; falls back to the synchronous kind when
    // the kind fails and a sampler is still wanted. The first error is returned.
    ZString startSamplerForCpu(const LockHolder& lock, JNIEnv* env, int64_t kind, const ZString* settingsText,
                               SamplingSettings* settings);
    // Object sampling needs stacks: the synchronous sampler unless one runs.
    void startSamplerForAllocations(const LockHolder& lock, JNIEnv* env);
    // The thread stays and idles.
    void stopSampler(const LockHolder& lock);
    Sampler* getSampler(uint64_t status);
    // Sampling selected, or object sampling that needs stacks.
    static bool isSamplerWanted(uint64_t status);

private:
    SyncSampler mySyncSampler;
    AsyncSampler myAsyncSampler;
};

extern JavaSampling ourJavaSampling;

// Charges the CPU and wall time since the thread's last sample to `frame`
// and its callers; a frame of a wall-timed method, and every caller above
// it, gets wall time. The first sample of a thread only sets its times.
void doThreadSample(const LockHolder& lock, ThreadInfo* thread, int frame, int64_t cpuNow, int64_t wallNow);

// Fills the thread states of one telemetry row from all stacks.
void sampleThreadStatesJVMTI(const LockHolder& lock, JNIEnv* env, TelemetryRecord* row);
// One thread's state; remembers since when the thread stands at `frame`.
void doThreadStateSample(ThreadInfo* thread, int frame, _ThreadState* state);

void JNICALL sampler_thread_entry(jvmtiEnv* jvmti, JNIEnv* env, void* arg);
