package com.corvane.runtime;

import java.io.File;
import java.io.IOException;

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

    /** Called by the agent when object counting starts in the instrumented allocation sites. */
    public static void setupAllocationCounter() {
        Callback.setupAllocationCounter();
    }

    /** Runs the actions of the triggers that fire at JVM exit. */
    public static void runOnJvmExitTriggers() {
    }

    /** Tells the monitored-run side that the JVM is exiting. */
    public static void notifyLwOnJvmExit() {
    }

    /** Writes the snapshot asked for at exit: 1 for a memory snapshot, 0 for a performance snapshot. */
    public static void captureSnapshotOnExit(long kind) {
        String format = ourSnapshotNameFormat == null || ourSnapshotNameFormat.isEmpty()
                ? "{sessionname}-{date}" : ourSnapshotNameFormat;
        captureSnapshot1(null, -1, kind | SharedConstants.SNAPSHOT_FLAG_ON_EXIT, format + "-shutdown", null);
    }


    /**
     * Captures a snapshot into {@code directory} (null: the snapshot directory). Null on success, with the
     * path in {@code pathOut[0]}; otherwise the message.
     */
    public static String captureSnapshot1(String directory, int progressSocket, long flags, String nameFormat,
                                          String[] pathOut) {
        File folder;
        try {
            folder = directory != null ? new File(directory) : getSnapshotDirectory();
        } catch (RuntimeException e) {
            return logCaptureFailure(String.valueOf(directory), e.getMessage());
        }
        if (!folder.isDirectory()) {
            return "Path to snapshot directory does not represent a directory: " + folder;
        }
        if (!folder.canWrite()) {
            return "User " + System.getProperty("user.name") + " has no write access to the directory " + folder;
        }
        boolean hprof = (flags & SharedConstants.SNAPSHOT_FLAG_HPROF) != 0;
        File file;
        try {
            file = Agent.createSnapshotFile(folder, nameFormat, ourSessionName, hprof ? ".hprof" : ".snapshot");
        } catch (IOException e) {
            return logCaptureFailure(folder.getPath(), e.getMessage());
        }
        String path = file.getAbsolutePath();
        String error;
        if (hprof) {
            error = dumpHprof(file);
        } else {
            error = Callback.captureSnapshotSafe(path, progressSocket, flags);
        }
        if (error != null) {
            file.delete();
            return logCaptureFailure(path, error);
        }
        Callback.messageToStdout("Snapshot captured: " + path);
        Callback.addSnapshotInfo(path, flags);
        if (pathOut != null && pathOut.length > 0) {
            pathOut[0] = path;
        }
        return null;
    }

    /** Set once the JVM's management beans may be used (after the start delay). */
    static volatile boolean ourCanAccessMBeans;

    private static String dumpHprof(File file) {
        if (!isHprofSupported()) {
            return "\nHPROF heap dumper is available only in Oracle JDK and OpenJDK HotSpot."
                    + "\nWith your JVM, capture memory snapshot in the profiler format.";
        }
        if (!ourCanAccessMBeans) {
            return "cannot use the JVM's built-in dumper until the pause specified with the startup option \"delay\""
                    + " ended";
        }
        try {
            // The dumper refuses to overwrite the file that reserved the name.
            file.delete();
            javax.management.MBeanServer server = java.lang.management.ManagementFactory.getPlatformMBeanServer();
            server.invoke(new javax.management.ObjectName("com.sun.management:type=HotSpotDiagnostic"), "dumpHeap",
                    new Object[] {file.getAbsolutePath(), Boolean.TRUE}, new String[] {"java.lang.String", "boolean"});
            return null;
        } catch (Exception e) {
            return String.valueOf(e.getMessage() != null ? e.getMessage() : e);
        }
    }

    static boolean isHprofSupported() {
        String vendor = System.getProperty("java.vm.vendor", "");
        for (String known : new String[] {"AdoptOpenJDK", "Apple", "Azul", "FreeBSD", "Hewlett", "JetBrains", "Oracle",
                "Sun"}) {
            if (vendor.contains(known)) {
                return true;
            }
        }
        return false;
    }

    private static String logCaptureFailure(String path, String message) {
        Callback.messageToLogFile("error: cannot capture snapshot: " + message);
        return "Cannot capture snapshot " + path + ": " + message;
    }

    /** The {@code dir} option: the default folder when empty, the public one for "public", else as given. */
    static File getSnapshotDirectory() {
        String dir = ourAlternateSnapshotDir;
        if (dir == null || dir.isEmpty()) {
            return SnapshotDirectory0.getSnapshotDirectory();
        }
        if (dir.equals("public")) {
            return SnapshotDirectory0.getPublicSnapshotDirectory();
        }
        File folder = new File(dir);
        folder.mkdirs();
        return folder;
    }
}
