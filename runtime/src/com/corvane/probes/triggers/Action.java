package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** One thing a trigger does when its event comes. Text form: the class name without "Action", then properties. */
public abstract class Action {
    public static final Class<?>[] ALL_CLASSES = {PrintMessageAction.class, AlarmAction.class,
            AdvanceGenerationAction.class, CaptureHprofSnapshotAction.class, CaptureMemorySnapshotAction.class,
            CapturePerformanceSnapshotAction.class, EmptyAction.class, ForceGcAction.class,
            RecordMethodInvocationAction.class, StartAllocatedObjectCountingAction.class,
            StartAllocationRecordingAction.class, StartAsyncSamplingCpuAction.class, StartCallCountingAction.class,
            StartExceptionProfilingAction.class, StartMonitorProfilingAction.class, StartSamplingAction.class,
            StartStackTelemetryAction.class, StartTracingAction.class, StopAllocationRecordingAction.class,
            StopCpuProfilingAction.class, StopExceptionProfilingAction.class, StopMonitorProfilingAction.class,
            StopStackTelemetryAction.class, SleepAction.class, WaitForEventToFinishAction.class};

    /** The action of a trimmed action line, or null for an unknown name. */
    public static Action parse(String line) throws Exception {
        return (Action) Serialization.parse(line, ALL_CLASSES, "Action");
    }

    public String serialize() throws Exception {
        return Serialization.serialize(this, "Action");
    }

    /** Null when the agent can perform this action, else why not. */
    public String checkAvailable() {
        return null;
    }

    protected abstract void perform() throws Exception;

    /** Fails with the refusal of a start that the agent refused. */
    static void requireTaken(String refusal) {
        if (refusal != null) {
            throw new IllegalStateException(refusal);
        }
    }

    /** Performs the action; a failure is logged. */
    public void performSafe() {
        try {
            perform();
        } catch (Throwable e) {
            Callback.messageToLogFile("error: trigger action " + getClass().getSimpleName() + " failed: " + e);
        }
    }
}
