package com.corvane.runtime;

import java.lang.management.ClassLoadingMXBean;
import java.lang.management.GarbageCollectorMXBean;
import java.lang.management.LockInfo;
import java.lang.management.ManagementFactory;
import java.lang.management.MemoryMXBean;
import java.lang.management.MemoryUsage;
import java.lang.management.MonitorInfo;
import java.lang.management.ThreadInfo;
import java.lang.management.ThreadMXBean;
import java.util.Arrays;
import java.util.Date;
import java.util.List;

/**
 * The telemetry: each period one sample of memory, classes, threads, CPU and
 * garbage collection into the database, and a look for deadlocks.
 */
final class TelemetryThread extends Thread {
    private static final int DEFAULT_SAMPLE_THRESHOLD_MS = 100;
    private static final long KB = 1024;

    /** Set while the last look found deadlocked threads. */
    static volatile boolean ourDeadlocksDetected;
    private static final Object ourPauseMonitor = new Object();
    private static boolean ourWakeUpRequested;

    private final boolean myEnableOomeDumper;
    // Fetched on the telemetry thread itself: the management beans take tens
    // of milliseconds to come up, which the JVM's start need not wait for.
    private MemoryMXBean myMemory;
    private ThreadMXBean myThreads;
    private ClassLoadingMXBean myClasses;
    private List<GarbageCollectorMXBean> myCollectors;
    private final int myProcessors = Runtime.getRuntime().availableProcessors();
    private long myLastWallNs;
    private long myLastCpuNs;
    private long myLastGcCount;
    private long myLastGcTimeMs;
    private long[] myLastDeadlocked = new long[0];

    private TelemetryThread(boolean enableOomeDumper) {
        super(SharedConstants.TELEMETRY_THREAD_NAME);
        myEnableOomeDumper = enableOomeDumper;
        setDaemon(true);
    }

    /** Starts the telemetry at once, or after {@code delayMs} on a thread of its own. */
    static void start(final boolean enableOomeDumper, final int delayMs) {
        if (delayMs <= 0) {
            new TelemetryThread(enableOomeDumper).start();
            return;
        }
        Thread delay = new Thread(SharedConstants.TELEMETRY_DELAY_THREAD_NAME) {
            @Override
            public void run() {
                Callback.excludeThreadFromAsyncSampling();
                try {
                    Thread.sleep(delayMs);
                } catch (InterruptedException e) {
                    return;
                }
                new TelemetryThread(enableOomeDumper).start();
            }
        };
        delay.setDaemon(true);
        delay.start();
    }

    /** Ends the current wait early: the next sample is taken now. */
    static void wakeUp() {
        synchronized (ourPauseMonitor) {
            ourWakeUpRequested = true;
            ourPauseMonitor.notifyAll();
        }
    }

    @Override
    public void run() {
        Callback.excludeThreadFromAsyncSampling();
        myMemory = ManagementFactory.getMemoryMXBean();
        myThreads = ManagementFactory.getThreadMXBean();
        myClasses = ManagementFactory.getClassLoadingMXBean();
        myCollectors = ManagementFactory.getGarbageCollectorMXBeans();
        Core.ourCanAccessMBeans = true;
        if (myEnableOomeDumper) {
            OomeDumper.enable();
        }
        Core.makeSurePropertiesInitialized();
        int threshold = Callback.dispatchInt("_tele_sample_threshold_ms");
        if (threshold < 0) {
            threshold = DEFAULT_SAMPLE_THRESHOLD_MS;
        }
        boolean failureLogged = false;
        for (;;) {
            long start = System.nanoTime();
            String parts = "";
            try {
                parts = sample();
            } catch (Throwable e) {
                if (!failureLogged) {
                    failureLogged = true;
                    Callback.messageToLogFile("error: telemetry sample failed: " + e);
                }
            }
            long tookMs = (System.nanoTime() - start) / 1000000;
            if (tookMs > threshold) {
                Callback.messageToLogFile("warning: long telemetry sample: " + tookMs + " ms (" + parts + ")");
            }
            // The triggers' actions (a snapshot, say) are no part of the sample.
            try {
                Triggers.handle(myMemory);
            } catch (Throwable e) {
                Callback.messageToLogFile("error: trigger failed: " + e);
            }
            tookMs = (System.nanoTime() - start) / 1000000;
            int period = Callback.getTelemetryPeriodMs();
            pause(period - tookMs, period > 0);
        }
    }

    /** Waits {@code ms}, or until woken; a period of 0 or less samples only when woken. */
    private static void pause(long ms, boolean periodic) {
        synchronized (ourPauseMonitor) {
            long end = System.currentTimeMillis() + Math.max(ms, 1);
            while (!ourWakeUpRequested) {
                long left = periodic ? end - System.currentTimeMillis() : 0;
                if (periodic && left <= 0) {
                    break;
                }
                try {
                    ourPauseMonitor.wait(left);
                } catch (InterruptedException e) {
                    break;
                }
            }
            ourWakeUpRequested = false;
        }
    }

    /** One sample into the database; the result names the parts with their times, for a slow sample's warning. */
    private String sample() {
        StringBuilder parts = new StringBuilder();
        long mark = System.nanoTime();
        int[] constants = new int[SharedConstants.TELEMETRY_HEAP_MAX_KB_PROPERTY + 1];
        int[] values = new int[SharedConstants.TELEMETRY_VALUE_COUNT];

        // The heap as the collector counts it now; the memory bean of some collectors tells only what the last
        // collection left.
        Runtime runtime = Runtime.getRuntime();
        long heapCommitted = runtime.totalMemory();
        values[SharedConstants.TELEMETRY_HEAP_USED_KB] = kb(heapCommitted - runtime.freeMemory());
        values[SharedConstants.TELEMETRY_HEAP_COMMITTED_KB] = kb(heapCommitted);
        constants[SharedConstants.TELEMETRY_HEAP_MAX_KB_PROPERTY] = kb(runtime.maxMemory());
        MemoryUsage nonHeap = myMemory.getNonHeapMemoryUsage();
        values[SharedConstants.TELEMETRY_NON_HEAP_USED_KB] = kb(nonHeap.getUsed());
        values[SharedConstants.TELEMETRY_NON_HEAP_COMMITTED_KB] = kb(nonHeap.getCommitted());
        constants[SharedConstants.TELEMETRY_NON_HEAP_MAX_KB_PROPERTY] = kb(nonHeap.getMax());
        long processMemory = Callback.getProcessPhysicalMemoryUsage();
        values[SharedConstants.TELEMETRY_PROCESS_MEMORY_MB] = processMemory < 0 ? -1 : (int) (processMemory >> 20);
        mark = part(parts, "memory", mark);

        values[SharedConstants.TELEMETRY_LOADED_CLASSES] = myClasses.getLoadedClassCount();
        constants[SharedConstants.TELEMETRY_UNLOADED_CLASSES_PROPERTY] = (int) myClasses.getUnloadedClassCount();
        values[SharedConstants.TELEMETRY_LIVE_THREADS] = myThreads.getThreadCount();
        values[SharedConstants.TELEMETRY_DAEMON_THREADS] = myThreads.getDaemonThreadCount();
        constants[SharedConstants.TELEMETRY_PEAK_THREADS_PROPERTY] = myThreads.getPeakThreadCount();
        constants[SharedConstants.TELEMETRY_STARTED_THREADS_PROPERTY] = (int) myThreads.getTotalStartedThreadCount();
        mark = part(parts, "classes and threads", mark);

        long wallNs = System.nanoTime();
        long cpuNs = Callback.getProcessCpuTimeNs(false);
        if (myLastWallNs != 0 && cpuNs >= 0 && wallNs > myLastWallNs) {
            values[SharedConstants.TELEMETRY_CPU_PERMILLE] =
                    (int) Math.min(1000, (cpuNs - myLastCpuNs) * 1000 / ((wallNs - myLastWallNs) * myProcessors));
        }
        myLastWallNs = wallNs;
        myLastCpuNs = cpuNs;
        long gcCount = 0;
        long gcTimeMs = 0;
        for (GarbageCollectorMXBean collector : myCollectors) {
            gcCount += Math.max(0, collector.getCollectionCount());
            gcTimeMs += Math.max(0, collector.getCollectionTime());
        }
        values[SharedConstants.TELEMETRY_GC_COUNT] = (int) (gcCount - myLastGcCount);
        values[SharedConstants.TELEMETRY_GC_TIME_MS] = (int) (gcTimeMs - myLastGcTimeMs);
        myLastGcCount = gcCount;
        myLastGcTimeMs = gcTimeMs;
        mark = part(parts, "cpu and gc", mark);

        if ((Callback.getStatus() & SharedConstants.SHOULD_DETECT_DEADLOCKS) != 0) {
            detectDeadlocks();
            mark = part(parts, "deadlocks", mark);
        }
        constants[SharedConstants.TELEMETRY_DEADLOCK_PROPERTY] = ourDeadlocksDetected ? 1 : 0;

        Callback.storeTelemetryRecord(constants, values, new int[0], new int[0]);
        part(parts, "store", mark);
        return parts.toString();
    }

    private static long part(StringBuilder parts, String name, long since) {
        long now = System.nanoTime();
        if (parts.length() > 0) {
            parts.append(", ");
        }
        parts.append(name).append(' ').append((now - since) / 1000000).append(" ms");
        return now;
    }

    private static int kb(long bytes) {
        return bytes < 0 ? -1 : (int) Math.min(Integer.MAX_VALUE, bytes / KB);
    }

    private void detectDeadlocks() {
        long[] ids = myThreads.isSynchronizerUsageSupported() ? myThreads.findDeadlockedThreads()
                : myThreads.findMonitorDeadlockedThreads();
        if (ids == null) {
            ids = new long[0];
        }
        Arrays.sort(ids);
        ourDeadlocksDetected = ids.length > 0;
        if (ids.length > 0 && !Arrays.equals(ids, myLastDeadlocked)) {
            StringBuilder names = new StringBuilder();
            for (ThreadInfo info : myThreads.getThreadInfo(ids)) {
                if (info != null) {
                    names.append(names.length() > 0 ? ", " : "").append('"').append(info.getThreadName()).append('"');
                }
            }
            Callback.message("Deadlock detected", names.toString());
        }
        myLastDeadlocked = ids;
    }

    /** Every thread with its whole stack, the locks it holds and the one it waits for. */
    static String processGetJvmThreadDumpImpl() {
        ThreadMXBean threads = ManagementFactory.getThreadMXBean();
        StringBuilder text = new StringBuilder();
        for (ThreadInfo info : threads.dumpAllThreads(threads.isObjectMonitorUsageSupported(),
                threads.isSynchronizerUsageSupported())) {
            if (info != null) {
                appendThread(text, info);
            }
        }
        return text.toString();
    }

    /** The text of "/dump-threads": the JVM, uptime and time, then the dump. */
    static String dumpThreadsWithHeader() {
        java.lang.management.RuntimeMXBean runtime = ManagementFactory.getRuntimeMXBean();
        return "Java Virtual Machine: " + runtime.getVmName() + " " + runtime.getVmVersion() + " ("
                + runtime.getVmVendor() + ")\n" + "Uptime: " + formatDuration(runtime.getUptime()) + "\n" + "Time: "
                + new Date() + "\n\n" + processGetJvmThreadDumpImpl();
    }

    static String formatDuration(long ms) {
        long seconds = ms / 1000;
        return String.format("%d:%02d:%02d", seconds / 3600, seconds / 60 % 60, seconds % 60);
    }

    private static void appendThread(StringBuilder text, ThreadInfo info) {
        text.append('"').append(info.getThreadName()).append("\" #").append(info.getThreadId());
        text.append(' ').append(info.getThreadState());
        if (info.getLockName() != null) {
            text.append(" on ").append(info.getLockName());
            if (info.getLockOwnerName() != null) {
                text.append(" owned by \"").append(info.getLockOwnerName()).append("\" #").append(info.getLockOwnerId());
            }
        }
        if (info.isSuspended()) {
            text.append(" (suspended)");
        }
        if (info.isInNative()) {
            text.append(" (in native)");
        }
        text.append('\n');
        StackTraceElement[] stack = info.getStackTrace();
        MonitorInfo[] monitors = info.getLockedMonitors();
        for (int depth = 0; depth < stack.length; depth++) {
            text.append("\tat ").append(stack[depth]).append('\n');
            for (MonitorInfo monitor : monitors) {
                if (monitor.getLockedStackDepth() == depth) {
                    text.append("\t- locked ").append(monitor).append('\n');
                }
            }
        }
        LockInfo[] synchronizers = info.getLockedSynchronizers();
        if (synchronizers.length > 0) {
            text.append("\tLocked synchronizers:\n");
            for (LockInfo lock : synchronizers) {
                text.append("\t- ").append(lock).append('\n');
            }
        }
        text.append('\n');
    }
}
