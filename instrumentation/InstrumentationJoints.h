// What the class load hook and the patcher ask of the layers above them
// (probes, counting support, tracing). The agent's wiring installs their
// functions at start; until then every joint answers as if that layer had
// nothing to say, so the instrumentation works on its own.
#pragma once

#include <jni.h>
#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/ZString.h"

class ClassFile;

struct ProbeJoint {
    // The class is the callback class of a probe whose activity mode keeps
    // it off (mode 0, or auto while auto probes are inactive).
    bool (*isDisabledProbeClass)(const LockHolder& lock, const ZString& internalName);
    // Some probe other than the class's own has a positive pattern that may
    // apply to the class: the hook must parse it even with nothing else to do.
    bool (*isAnyProbeApplicable)(const LockHolder& lock, const ZString& internalName, const ZString& fullName);
    // Applies the probes to the class; with `disabledProbe`, empties the
    // probe's callback methods instead. True when the class changed.
    bool (*applyProbes)(const LockHolder& lock, ClassFile* classFile, const ZString& fullName, bool disabledProbe);
    // The filter of methods never to be instrumented.
    bool (*isFilteredMethod)(const ZString& className, const ZString& name, const ZString& parameters);
};

struct CountingJoint {
    // Address of stripe 0 of the call counter of a method.
    int64_t (*getCallCounterAddress)(const LockHolder& lock, int methodId);
    // Address of stripe 0 of the counter of an allocation point.
    int64_t (*getAllocCounterAddress)(const LockHolder& lock, int codePoint, int classStringId);
    // Number of stripes of a counter block, 4 or 8.
    int (*getFactor)();
};

struct RecordingJoint {
    // The adaptive setting of tracing.
    bool (*isAdaptiveTracing)();
    // Injected code may store lines through Unsafe.
    bool (*canSetLineNumbers)();
};

extern ProbeJoint ourProbeJoint;
extern CountingJoint ourCountingJoint;
extern RecordingJoint ourRecordingJoint;
