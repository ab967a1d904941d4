package com.corvane.runtime;

import java.io.File;
import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.ServerSocket;
import java.util.ArrayList;
import java.util.LinkedHashSet;
import java.util.List;

/**
 * The Java half of the agent inside the profiled JVM. The native side calls
 * its static methods at start and at JVM exit; it opens the control port and
 * starts the agent's threads.
 */
public final class Core {
    static final int DEFAULT_LOWER_PORT = 10001;
    static final int DEFAULT_UPPER_PORT = 10010;
    private static final int BACKLOG = 50;
    private static final int FREE_PORT_TRIES = 1000;

    static volatile int ourPort = -1;
    static volatile String ourAlternateSnapshotDir;
    static volatile String ourSessionName;
    static volatile String ourSnapshotNameFormat = "{sessionname}-{date}";
    static volatile long ourSessionId;
    static volatile boolean ourPropertiesInitialized;
    static volatile int ourTelemetryLimit;
    static volatile Runnable ourDelayedRunnable;
    static volatile int ourDelayedPort;
    static volatile int ourTemplateNumber;
    static volatile long ourStartTimeMs = System.currentTimeMillis();
    /** Set once the JVM's management beans may be used (after the start delay). */
    static volatile boolean ourCanAccessMBeans;
    static volatile String ourListen = "localhost";
    /** The snapshots this agent captured, for the list of transferable ones. */
    private static final LinkedHashSet<String> ourCapturedSnapshots = new LinkedHashSet<String>();

    private Core() {
    }

    /** Called once by the agent after the JVM has initialised. */
    public static boolean init(final int lowerPort, final int upperPort, final String listen, String sessionName,
                               String snapshotNameFormat, String snapshotDir, final String profilerDir,
                               final int idePort, long sessionId, final int delayMs, int telemetryLimit,
                               final boolean enableOomeDumper, String triggerText) {
        requireNonNull(listen, 3);
        requireNonNull(sessionName, 4);
        requireNonNull(snapshotNameFormat, 5);
        requireNonNull(snapshotDir, 6);
        requireNonNull(profilerDir, 7);
        requireNonNull(triggerText, 13);
        try {
            ourSessionName = sessionName;
            if (snapshotNameFormat.length() > 0) {
                ourSnapshotNameFormat = snapshotNameFormat;
            }
            ourSessionId = sessionId;
            ourTelemetryLimit = telemetryLimit;
            ourAlternateSnapshotDir = snapshotDir;
            ourListen = listen;
            boolean onAttach = Agent.isAttached();
            if (onAttach) {
                BootDelegation.agentLoadingSupportOnAttach();
            }
            String refusal = setTriggers(triggerText, false, onAttach);
            if (refusal != null) {
                Callback.messageToLogFile("warning: " + refusal);
            }
        } catch (Throwable e) {
            Callback.messageToStderr("Cannot start: " + e);
            return false;
        }
        Callback.setupAllocationCounter();
        if (delayMs >= 0) {
            return _init(lowerPort, upperPort, listen, profilerDir, idePort, enableOomeDumper, delayMs);
        }
        ourDelayedRunnable = new Runnable() {
            @Override
            public void run() {
                int port = ourDelayedPort;
                _init(port > 0 ? port : lowerPort, port > 0 ? port : upperPort, listen, profilerDir, idePort,
                        enableOomeDumper, 0);
            }
        };
        Callback.messageToLogFile("delay=-1: the profiler threads wait for Core.startProfilerThreads()");
        return true;
    }

    private static void requireNonNull(Object value, int position) {
        if (value == null) {
            throw new IllegalArgumentException("Parameter " + position + " must not be null");
        }
    }

    /**
     * Brings up the port and the threads that {@code delay=-1} held back; a positive port is taken as the only
     * one to try. False when nothing was held back.
     */
    public static synchronized boolean startProfilerThreads(int port) {
        Runnable delayed = ourDelayedRunnable;
        if (delayed == null) {
            return false;
        }
        ourDelayedRunnable = null;
        ourDelayedPort = port;
        delayed.run();
        return ourPort > 0;
    }

    static boolean _init(int lowerPort, int upperPort, String listen, String profilerDir, int idePort,
                         boolean enableOomeDumper, int delayMs) {
        boolean predefined = lowerPort > 0;
        int lower = predefined ? lowerPort : DEFAULT_LOWER_PORT;
        int upper = predefined ? upperPort : DEFAULT_UPPER_PORT;
        ServerSocket[] sockets = null;
        for (int port : Callback.getFreePorts(lower, upper)) {
            try {
                sockets = createServerSockets(port, listen);
                break;
            } catch (IOException e) {
                // taken by a process without a marker: try the next one
            }
        }
        if (sockets == null && predefined) {
            Callback.messageToStderr(lower == upper
                    ? "Cannot start: predefined port " + lower + " is already in use"
                    : "Cannot start: all ports in the predefined range [" + lower + ", " + upper
                            + "] are already in use");
            return false;
        }
        if (sockets == null) {
            try {
                sockets = createServerSockets(0, listen);
            } catch (IOException e) {
                Callback.messageToStderr("Cannot start: cannot open a free port");
                return false;
            }
        }
        ourPort = sockets[0].getLocalPort();

        TelemetryThread.start(enableOomeDumper, delayMs);
        Callback.createMarker(ourPort, SharedConstants.MARKER_MASK_AGENT);
        RequestProcessing.startRequestThreads(sockets);
        Callback.message("Corvane Java Profiler agent is listening on port " + ourPort + ", \"listen=" + listen
                + "\"", null);
        if (profilerDir.length() == 0) {
            Callback.messageToLogFile(
                    "*** HINT ***: To get profiling results, connect to the application from the profiler UI");
        } else {
            UILauncher.start(profilerDir, idePort);
        }
        Triggers.runOnJvmStart();
        return true;
    }

    /** The server sockets for {@code listen}: one, or two on the same port (loopback and the address). */
    static ServerSocket[] createServerSockets(int port, String listen) throws IOException {
        if (listen.equals("all")) {
            return new ServerSocket[] {new ServerSocket(port, BACKLOG)};
        }
        InetAddress loopback = InetAddress.getByName(null);
        if (listen.equals("localhost")) {
            return new ServerSocket[] {new ServerSocket(port, BACKLOG, loopback)};
        }
        InetAddress address = InetAddress.getByName(listen);
        if (address.isLoopbackAddress()) {
            return new ServerSocket[] {new ServerSocket(port, BACKLOG, address)};
        }
        if (port != 0) {
            return openPair(port, loopback, address);
        }
        for (int attempt = 0; attempt < FREE_PORT_TRIES; attempt++) {
            int candidate;
            ServerSocket probe = new ServerSocket();
            try {
                probe.bind(new InetSocketAddress(address, 0), BACKLOG);
                candidate = probe.getLocalPort();
            } finally {
                probe.close();
            }
            try {
                return openPair(candidate, loopback, address);
            } catch (IOException e) {
                // somebody took it meanwhile
            }
        }
        throw new IOException("Cannot find a free port");
    }

    private static ServerSocket[] openPair(int port, InetAddress loopback, InetAddress address) throws IOException {
        ServerSocket first = new ServerSocket(port, BACKLOG, loopback);
        try {
            return new ServerSocket[] {first, new ServerSocket(port, BACKLOG, address)};
        } catch (IOException e) {
            first.close();
            throw e;
        }
    }

    /** Null when the trigger text was taken, else why not. */
    static synchronized String setTriggers(String text, boolean append, boolean onAttach) {
        return Triggers.set(text == null ? "" : text, append);
    }

    static synchronized List<com.corvane.probes.triggers.EventListener> getListeners() {
        return Triggers.getListeners();
    }

    /** A snapshot asked for by a trigger (flags as for captureSnapshot1), named by {@code fileName} or by the snapshot name format. */
    public static String captureSnapshotByTrigger(String fileName, long flags, String[] pathOut) {
        String format = fileName != null && fileName.length() > 0 ? fileName
                : ourSnapshotNameFormat == null || ourSnapshotNameFormat.isEmpty() ? "{sessionname}-{date}"
                : ourSnapshotNameFormat;
        return captureSnapshot1(null, -1, flags, format, pathOut);
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

    /** As Callback.startCpuProfiling, with whatever goes wrong turned into the refusal's text. */
    public static String startCpuProfilingSafe(long mode, String settings) {
        try {
            return Callback.startCpuProfiling(mode, settings);
        } catch (Throwable e) {
            return "Cannot start CPU profiling: " + describe(e);
        }
    }

    static String describe(Throwable e) {
        return e.getMessage() != null ? e.getMessage() : e.toString();
    }

    /** Called by the agent when object counting starts in the instrumented allocation sites. */
    public static void setupAllocationCounter() {
        Callback.setupAllocationCounter();
    }

    /** Runs the actions of the triggers that fire at JVM exit. */
    public static void runOnJvmExitTriggers() {
        Triggers.runOnJvmExit();
    }

    /**
     * The last step at the JVM's exit: the control port closes, so that no
     * agent thread is left waiting in a socket call, which the JVM would
     * wait for before it ends.
     */
    public static void stopListening() {
        RequestProcessing.closeAllSockets();
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
     * Captures a snapshot into {@code directory} (null or empty: the snapshot directory). Null on success, with
     * the path in {@code pathOut[0]}; otherwise the message. Progress goes to {@code progressSocket} when it is a
     * descriptor.
     */
    public static String captureSnapshot1(String directory, int progressSocket, long flags, String nameFormat,
                                          String[] pathOut) {
        File folder;
        try {
            folder = getSnapshotDirectory(directory);
        } catch (RuntimeException e) {
            return logCaptureFailure(String.valueOf(directory), describe(e));
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
            makeSurePropertiesInitialized();
            error = OomeDumper.dumpHeap(file);
        } else {
            error = Callback.captureSnapshotSafe(path, progressSocket, flags);
        }
        if (error != null) {
            file.delete();
            return logCaptureFailure(path, error);
        }
        Callback.message("Snapshot captured", path);
        Callback.addSnapshotInfo(path, flags);
        synchronized (ourCapturedSnapshots) {
            ourCapturedSnapshots.add(path);
        }
        if (pathOut != null && pathOut.length > 0) {
            pathOut[0] = path;
        }
        return null;
    }

    private static String logCaptureFailure(String path, String message) {
        Callback.messageToLogFile("error: cannot capture snapshot: " + message);
        return "Cannot capture snapshot " + path + ": " + message;
    }

    /** The snapshots captured here that still exist, and every file of the public folder. */
    static List<File> getTransferableSnapshots() {
        LinkedHashSet<File> files = new LinkedHashSet<File>();
        synchronized (ourCapturedSnapshots) {
            for (String path : ourCapturedSnapshots) {
                files.add(new File(path));
            }
        }
        File[] shared = SnapshotDirectory0.getPublicSnapshotDirectory().listFiles();
        if (shared != null) {
            for (File file : shared) {
                files.add(file.getAbsoluteFile());
            }
        }
        List<File> result = new ArrayList<File>();
        for (File file : files) {
            if (file.isFile()) {
                result.add(file);
            }
        }
        return result;
    }

    /** HotSpot JVMs, known by their vendors; "Debian" is this platform's own build of OpenJDK. */
    static boolean isHprofSupported() {
        String vendor = System.getProperty("java.vm.vendor", "");
        for (String known : new String[] {"AdoptOpenJDK", "Apple", "Azul", "Debian", "FreeBSD", "Hewlett", "JetBrains",
                "Oracle", "Sun"}) {
            if (vendor.contains(known)) {
                return true;
            }
        }
        return false;
    }

    /** The {@code dir} option's folder. */
    static File getSnapshotDirectory() {
        return getSnapshotDirectory(null);
    }

    /** {@code path}, or the {@code dir} option when it is null or empty: the default folder when empty, the public one for "public", else as given, created if missing. */
    static File getSnapshotDirectory(String path) {
        String dir = path == null || path.isEmpty() ? ourAlternateSnapshotDir : path;
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

    static boolean isPublicDirectory(File folder) {
        if (folder == null) {
            return false;
        }
        try {
            return folder.getCanonicalFile().equals(
                    SnapshotDirectory0.getPublicSnapshotDirectory().getCanonicalFile());
        } catch (IOException e) {
            return false;
        }
    }

    /** The state of the JVM's own heap dump on OutOfMemoryError; -2 while the beans may not be touched. */
    static int getOomeDumperStatus() {
        return ourCanAccessMBeans ? OomeDumper.getStatus() : -2;
    }

    /** The JVM's facts that a snapshot needs, stored once in the database. */
    static synchronized void makeSurePropertiesInitialized() {
        if (ourPropertiesInitialized) {
            return;
        }
        ourPropertiesInitialized = true;
        try {
            java.lang.management.RuntimeMXBean runtime = java.lang.management.ManagementFactory.getRuntimeMXBean();
            Callback.setProperty("kzt.boot.class.path", runtime.isBootClassPathSupported()
                    ? runtime.getBootClassPath() : "");
            Callback.setProperty("kzt.vm.starttime", String.valueOf(runtime.getStartTime()));
            StringBuilder arguments = new StringBuilder();
            for (String argument : runtime.getInputArguments()) {
                if (arguments.length() > 0) {
                    arguments.append('\n');
                }
                arguments.append(argument);
            }
            Callback.setProperty("kzt.input.arguments", arguments.toString());
            if (Agent.isAttached()) {
                Callback.correctUptimeMs(runtime.getUptime());
            }
        } catch (Throwable e) {
            Callback.messageToLogFile("error: cannot store the JVM's properties: " + e);
        }
    }
}
