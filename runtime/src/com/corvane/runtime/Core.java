package com.corvane.runtime;

/**
 * The Java half of the agent inside the profiled JVM. The native side calls
 * its static methods at start and at JVM exit.
 */
public final class Core {
    static volatile int ourPort = -1;
    static volatile String ourAlternateSnapshotDir;
    static volatile String ourSessionName;
    static volatile String ourSnapshotNameFormat = "{sessionname}-{date}";
    static volatile long ourSessionId;
    static volatile int ourTelemetryLimit;
    static volatile long ourStartTimeMs = System.currentTimeMillis();

    private Core() {
    }

    /** Called once by the agent after the JVM has initialised. */
    public static boolean init(int lowerPort, int upperPort, String listen, String sessionName,
                               String snapshotNameFormat, String snapshotDir, String profilerDir, int idePort,
                               long sessionId, int delayMs, int telemetryLimit, boolean enableOomeDumper,
                               String triggerText) {
        requireNonNull(listen, 3);
        requireNonNull(sessionName, 4);
        requireNonNull(snapshotNameFormat, 5);
        requireNonNull(snapshotDir, 6);
        requireNonNull(profilerDir, 7);
        requireNonNull(triggerText, 13);
        ourSessionName = sessionName;
        if (snapshotNameFormat.length() > 0) {
            ourSnapshotNameFormat = snapshotNameFormat;
        }
        ourSessionId = sessionId;
        ourTelemetryLimit = telemetryLimit;
        ourAlternateSnapshotDir = snapshotDir;
        return true;
    }

    private static void requireNonNull(Object value, int position) {
        if (value == null) {
            throw new IllegalArgumentException("Parameter " + position + " must not be null");
        }
    }

    /** Called by the agent when the adaptive filter takes a method out of tracing. */
    public static void excludeByAdaptiveTracing(int methodId) {
        Callback.excludeByAdaptiveTracing(methodId);
    }

    /** Called by the agent when tracing starts; tells whether lines can be stored without a native call. */
    public static boolean setupTracing() {
        return Callback.setupTracing();
    }

    /** Called by the agent before a mode that counts through Unsafe. */
    public static boolean ensureUnsafeCreated() {
        return Callback.ensureUnsafeCreated();
    }

    /** Runs the actions of the triggers that fire at JVM exit. */
    public static void runOnJvmExitTriggers() {
    }

    /** Tells the monitored-run side that the JVM is exiting. */
    public static void notifyLwOnJvmExit() {
    }

    /** Writes the snapshot asked for at exit: 1 for a memory snapshot, 0 for a performance snapshot. */
    public static void captureSnapshotOnExit(long kind) {
    }
}
