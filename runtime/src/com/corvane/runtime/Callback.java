package com.corvane.runtime;

/**
 * The surface between the Java half and the native agent. The natives are
 * registered by the agent when the JVM starts; nothing here is linked by name.
 */
public final class Callback {
    private Callback() {
    }

    // ---- Instrumentation entry points ----
    // Rewritten classes call the four public stubs below. As loaded they do
    // nothing; when a mode starts, the agent redefines this class with the
    // body of one of the private variants copied into each stub, so a mode
    // that is off costs an empty static call, which the JIT removes.

    private static final int TAO_ELEMENT_PADDING_POW = 3;
    private static final int TAO_ELEMENT_PADDING = 1 << TAO_ELEMENT_PADDING_POW;
    private static final int TAO_EFFECTIVE_ELEMENTS = 256;
    private static final int TAO_FIRST_EFFECTIVE_INDEX = TAO_ELEMENT_PADDING;

    private static final int FACTOR_4 = 4;
    private static final int FACTOR_8 = 8;
    private static final int COUNTERS_PER_BLOCK_POW = SharedConstants.COUNTERS_PER_BLOCK_POW;
    private static final int COUNTERS_PER_BLOCK = 1 << COUNTERS_PER_BLOCK_POW;
    // log2 of the bytes of one stripe: COUNTERS_PER_BLOCK longs.
    private static final int COUNTERS_PER_BLOCK_SHIFT = COUNTERS_PER_BLOCK_POW + 3;

    // One bit a method id; set bits are methods that the adaptive filter took out.
    static volatile int[] ourAdaptiveTracingExcludedMethods;
    static volatile sun.misc.Unsafe ourUnsafe;
    static volatile boolean ourUnsafeCreated;
    // Striped count of the objects created by instrumented code.
    static volatile long[] ourTAO;

    public static long kztMethodEntry(int methodId, long counter) {
        return 0;
    }

    public static void kztMethodExit(int methodId, long entryResult) {
    }

    public static void kztMethodLine(int line, long entryResult) {
    }

    public static int kztInit(Object o, int cachedFrame, int classMethodId, short line, long counter) {
        return 0;
    }

    private static long methodEntry_NA(int methodId, long counter) {
        return kztMethodEntry0(methodId);
    }

    private static long methodEntry_A(int methodId, long counter) {
        if (isAdaptiveFiltered(methodId)) {
            return SharedConstants.ENTRY_RESULT_NOT_TRACED;
        }
        return kztMethodEntry0(methodId);
    }

    private static long methodEntry_CF4(int methodId, long counter) {
        long address = counter + ((Thread.currentThread().getId() & (FACTOR_4 - 1)) << COUNTERS_PER_BLOCK_SHIFT);
        sun.misc.Unsafe unsafe = ourUnsafe;
        unsafe.putLong(address, unsafe.getLong(address) + 1);
        return 0;
    }

    private static long methodEntry_CF8(int methodId, long counter) {
        long address = counter + ((Thread.currentThread().getId() & (FACTOR_8 - 1)) << COUNTERS_PER_BLOCK_SHIFT);
        sun.misc.Unsafe unsafe = ourUnsafe;
        unsafe.putLong(address, unsafe.getLong(address) + 1);
        return 0;
    }

    private static void methodExit_NA(int methodId, long entryResult) {
        kztMethodExit0(methodId, entryResult);
    }

    private static void methodExit_A(int methodId, long entryResult) {
        if (entryResult != SharedConstants.ENTRY_RESULT_NOT_TRACED) {
            kztMethodExit0(methodId, entryResult);
        }
    }

    // entryResult is 0 (ask the agent), 1 (not traced) or the address of the
    // thread's record, whose first field is the pending line.
    private static void methodLine(int line, long entryResult) {
        if (entryResult == 0) {
            kztMethodLine0(line);
        } else if (entryResult != SharedConstants.ENTRY_RESULT_NOT_TRACED) {
            ourUnsafe.putInt(entryResult, line);
        }
    }

    private static int init_A(Object o, int cachedFrame, int classMethodId, short line, long counter) {
        return kztInit0(o, cachedFrame, classMethodId, line);
    }

    private static int init_CF4(Object o, int cachedFrame, int classMethodId, short line, long counter) {
        long threadId = Thread.currentThread().getId();
        incTAO(threadId);
        long address = counter + ((threadId & (FACTOR_4 - 1)) << COUNTERS_PER_BLOCK_SHIFT);
        sun.misc.Unsafe unsafe = ourUnsafe;
        unsafe.putLong(address, unsafe.getLong(address) + 1);
        return 0;
    }

    private static int init_CF8(Object o, int cachedFrame, int classMethodId, short line, long counter) {
        long threadId = Thread.currentThread().getId();
        incTAO(threadId);
        long address = counter + ((threadId & (FACTOR_8 - 1)) << COUNTERS_PER_BLOCK_SHIFT);
        sun.misc.Unsafe unsafe = ourUnsafe;
        unsafe.putLong(address, unsafe.getLong(address) + 1);
        return 0;
    }

    static boolean isAdaptiveFiltered(int methodId) {
        int[] bits = ourAdaptiveTracingExcludedMethods;
        if (methodId < 0 || bits == null) {
            return false;
        }
        int word = methodId >>> 5;
        return word < bits.length && (bits[word] & (1 << (methodId & 31))) != 0;
    }

    // Only ids below the array's length are taken: the test is against the
    // word count, on purpose.
    static void excludeByAdaptiveTracing(int methodId) {
        int[] bits = ourAdaptiveTracingExcludedMethods;
        if (bits == null || methodId < 0) {
            return;
        }
        synchronized (bits) {
            if (methodId >= bits.length) {
                return;
            }
            bits[methodId >>> 5] |= 1 << (methodId & 31);
        }
    }

    static boolean setupTracing() {
        int[] bits = ourAdaptiveTracingExcludedMethods;
        if (bits == null) {
            ourAdaptiveTracingExcludedMethods = new int[SharedConstants.ADAPTIVE_TRACING_CACHE_CAPACITY / 32];
        } else {
            synchronized (bits) {
                java.util.Arrays.fill(bits, 0);
            }
        }
        return ensureUnsafeCreated();
    }

    static void setupAllocationCounter() {
        if (ensureUnsafeCreated()) {
            ourTAO = new long[TAO_FIRST_EFFECTIVE_INDEX + TAO_EFFECTIVE_ELEMENTS * TAO_ELEMENT_PADDING];
        }
    }

    // Raw offsets: the array base is not added, the leading padding takes it in.
    private static void incTAO(long threadId) {
        long[] tao = ourTAO;
        if (tao == null) {
            return;
        }
        sun.misc.Unsafe unsafe = ourUnsafe;
        long offset = (TAO_FIRST_EFFECTIVE_INDEX + (threadId & (TAO_EFFECTIVE_ELEMENTS - 1)) * TAO_ELEMENT_PADDING) * 8;
        long value;
        do {
            value = unsafe.getLongVolatile(tao, offset);
        } while (!unsafe.compareAndSwapLong(tao, offset, value, value + 1));
    }

    public static long getTotalCreatedObjectCount() {
        long result = getNativeAllocationCounterResult();
        long[] tao = ourTAO;
        if (tao == null) {
            if (ourUnsafe != null) {
                messageToLogFile("error: ourTAO == null");
            }
            return result;
        }
        sun.misc.Unsafe unsafe = ourUnsafe;
        for (int i = TAO_FIRST_EFFECTIVE_INDEX; i < tao.length; i += TAO_ELEMENT_PADDING) {
            result += unsafe.getLongVolatile(tao, i * 8L);
        }
        return result;
    }

    static boolean ensureUnsafeCreated() {
        if (ourUnsafeCreated) {
            return ourUnsafe != null;
        }
        try {
            ourUnsafe = sun.misc.Unsafe.getUnsafe();
        } catch (Throwable e) {
            java.io.StringWriter text = new java.io.StringWriter();
            e.printStackTrace(new java.io.PrintWriter(text));
            messageToLogFile(text.toString());
        }
        ourUnsafeCreated = true;
        messageToLogFile("ourUnsafe: " + (ourUnsafe != null));
        return ourUnsafe != null;
    }

    private static native long kztMethodEntry0(int methodId);

    private static native void kztMethodExit0(int methodId, long entryResult);

    private static native void kztMethodLine0(int line);

    private static native int kztInit0(Object o, int cachedFrame, int classMethodId, short line);

    public static native long getNativeAllocationCounterResult();

    public static native long getTotalCreatedObjectSize();

    public static native byte[] patchTemplateClass(String[] macroAndValuePairs);

    // Probes
    /** Null for a valid method pattern, else what is wrong with it. */
    public static native String validateMethodPattern(String methodPattern);

    // Time and properties
    public static native long getTimeNsForTracing();

    public static native long getUptimeMs();

    public static native void correctUptimeMs(long etalonMs);

    /** Stores a property whose value is a text; the result is the property's row. */
    public static native int setProperty(String key, String value);

    public static native void setPropertyByRecordIndex(int index, int value);

    public static native int findPropertyRecordIndex(int key);

    // Mode control
    public static native long getStatus();

    public static native long getCapabilities();

    public static native int getTelemetryPeriodMs();

    public static native int getAllocationRecordingSettingsRecordEach();

    public static native int getAllocationRecordingSettingsSizeLimit();

    /** Null on success, else why the mode did not start. A null settings text means the settings file. */
    public static native String startCpuProfiling(long mode, String settings);

    public static native void stopCpuProfiling(boolean force);

    /** Null on success, else why recording did not start. Modes: 2, 8194, 16386. */
    public static native String startAllocationRecording(int recordEach, int sizeLimit, long mode, String settings);

    public static native void stopAllocationRecording();

    public static native void clearAllocationData();

    public static native void clearCpuData();

    public static native void advanceGeneration(String description);

    public static native void startStackTelemetry();

    public static native void stopStackTelemetry();

    public static native void startExceptionProfiling();

    public static native void stopExceptionProfiling();

    /** Null on success, else why it did not start. */
    public static native String startMonitorProfiling();

    public static native void stopMonitorProfiling();

    public static native void clearMonitorData();

    public static native void clearExceptions();

    /** One telemetry sample: built-in properties by position, the 12 values, custom (key, value) pairs. */
    public static native void storeTelemetryRecord(int[] constants, int[] values, int[] keys, int[] customValues);

    // Snapshots and tables
    /** Null on success, else the error text; the file is then gone. */
    public static native String captureSnapshot(String path, int progressSocket, long flags);

    /** As captureSnapshot, with whatever the native side throws turned into the error text. */
    public static String captureSnapshotSafe(String path, int progressSocket, long flags) {
        try {
            return captureSnapshot(path, progressSocket, flags);
        } catch (OutOfMemoryError e) {
            return "out of memory";
        } catch (Throwable e) {
            return String.valueOf(e.getMessage() != null ? e.getMessage() : e);
        }
    }

    public static native void addSnapshotInfo(String path, long time);

    public static native boolean findSnapshot(String name);

    public static native void writeTables(int socket, int tableMask, int[] sinceGenerations);

    public static native String getDatabaseStatistics();

    public static native String getTopEventTableNames();

    // Event tables and probes
    /** The id of the table of the description (made on first use), or a negative code. */
    public static native int createEventTable(String owner, String description);

    public static native String getEventTableDescription(int id);

    /** The new row's event id, or 0 for none. */
    public static native int createEventTableRow(int tableId);

    public static native void closeEventTableRow(int tableId, int eventId, boolean noEndTime, String exceptionText);

    public static native void deleteEventTableRow(int tableId, int eventId);

    public static native void setEventTableInt32Column(int tableId, int eventId, int column, int value);

    public static native void setEventTableLongColumn(int tableId, int eventId, int column, long value);

    public static native void setEventTableStringColumn(int tableId, int eventId, int column, String value);

    public static native void setMinimumRecordedLastingEventTime(int tableId, int ms);

    public static native int getStrID(String text);

    // Object maps: objects to event ids, without a reference to the object.
    public static native long createObjectMap();

    public static native void deleteObjectMap(long map);

    /** The event id mapped to the object, or 0. */
    public static native int objectMapGet(long map, Object key);

    /** The event id replaced, or 0; with {@code conditional} only when the present one is {@code expected}. */
    public static native int objectMapPut(long map, Object key, int eventId, boolean conditional, int expected);

    public static native long objectGetID(Object object);

    public static native boolean isLiveObjectID(long id);

    public static native void clearEventTables(String names);

    public static native void addProbePath(String path);

    public static native String[] getProbes(int mode);

    public static native boolean isProbeOn(String className);

    public static native String registerProbesByName(String[] classNames);

    public static native void unregisterProbes(String[] classNames);

    public static native String setProbeActivityModes(String[] names, int[] modes);

    public static native String registerProbesByBytecode(byte[][] classes, boolean fromUi, boolean retransform);

    public static native void retransformClassesLoadedBeforeAgentAttached();

    // Threads
    public static native void onUncaughtException();

    public static native boolean shouldSkipThread();

    /** Agent threads call this first; a thread left out of asynchronous sampling. */
    public static native void excludeThreadFromAsyncSampling();

    /** Four ints a thread that has not moved for {@code thresholdMs}, or null. */
    public static native int[] getFrozenThreadsImpl(long thresholdMs);

    public static native boolean forceGarbageCollectionJvmti();

    /** A full collection: by JVMTI, or by the JVM's own request when that is refused. */
    public static void forceGc() {
        if (!forceGarbageCollectionJvmti()) {
            System.gc();
        }
    }

    // Processes and session
    /** This process's session marker, with the agent's session name. */
    public static native void createMarker(int port, int mask);

    /** The ports of the range that no other agent's marker holds. */
    public static native int[] getFreePorts(int lower, int upper);

    public static native int getProcessID(long handle);

    public static native void registerProcessExitListener(long handle, int pid);

    /** The watched processes that have ended since the last call. */
    public static native int[] getExitedProcesses();
    public static native long getProcessCpuTimeNs(boolean kernelOnly);

    public static native long getProcessMemoryUsage();

    public static native long getProcessPhysicalMemoryUsage();

    // Messages
    /** A notice for the application's user: the log, and stderr. {@code detail} may be null. */
    public static native void message(String text, String detail);

    public static native void messageToLogFile(String text);

    public static native void messageToTable(String category, String text, String detail);

    public static native void messageToStdout(String text);

    public static native void messageToStderr(String text);

    // Miscellaneous
    public static native int getPhase();

    public static native long dispatchLong(String key);

    public static native Object dispatchNullable(String key, String[] args);

    public static int dispatchInt(String key) {
        return (int) dispatchLong(key);
    }

    public static boolean dispatchBoolean(String key) {
        return dispatchLong(key) != 0;
    }

    public static Object dispatchNotNull(String key, String[] args) {
        Object result = dispatchNullable(key, args);
        if (result == null) {
            throw new IllegalStateException("null for " + key);
        }
        return result;
    }

    public static int getPid() {
        return dispatchInt("d_getPid");
    }

    public static String[] getCommandLine() {
        return (String[]) dispatchNotNull("d_command_line", new String[0]);
    }

    public static String getProcessOwner() {
        return (String) dispatchNotNull("d_process_owner", new String[0]);
    }

    public static String getPlatform() {
        return (String) dispatchNotNull("d_get_platform", new String[0]);
    }

    public static void clearCharts() {
        dispatchNullable("d_clear_charts", new String[0]);
    }
}
