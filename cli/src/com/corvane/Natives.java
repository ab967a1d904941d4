package com.corvane;

import com.corvane.commands.AgentLibrary;
import java.nio.file.Path;

/**
 * The natives that the agent library offers to the profiler's own tools:
 * facts about other processes, the session markers of the machine, checks of
 * user input by the agent's own code, and the heap graph of a memory
 * snapshot kept outside the Java heap behind a long handle, with its
 * immediate dominators, reachable sets and distances from the GC roots.
 * {@link #load()} loads the library once; the natives are bound by their
 * names. In the heap graph, objects are numbered from 1; sets of objects are
 * bit sets, bit {@code i & 31} of word {@code i >> 5} standing for object
 * {@code i}.
 */
public final class Natives {
    private static boolean ourLoaded;

    private Natives() {
    }

    /** Loads libcorvane.so (see {@link AgentLibrary}); a second call does nothing. */
    public static void load() {
        load(AgentLibrary.locate());
    }

    /** Loads the given library into this JVM; once loaded, a second call does nothing. */
    public static synchronized void load(Path library) {
        if (!ourLoaded) {
            System.load(library.toAbsolutePath().toString());
            ourLoaded = true;
        }
    }

    public static native String[] getCommandLineByPid(int pid);

    public static native String getSessionNameByCommandLine(int pid);

    /** Null when the process has neither an executable path nor a command line. */
    public static native String getProcessPathByPid(int pid);

    public static native int[] getSpecialJavaPids();

    public static native boolean is64BitMachine();

    /** The error text, or empty when the options are valid. */
    public static native String validateStartupOptions(String options);

    public static native int getProcessType(int pid);

    public static native String getProcessOwner(int pid);

    public static native void messageToLogFile(String text);

    public static native boolean isAdministrator();

    public static native boolean runAsAdministratorImpl(String command, String parameters);

    public static native String getLogFilePath();

    public static native long getOtherProcessCpuTimeNs(int pid);

    public static native long getTimeNsForTracing();

    public static native String getPlatform();

    /**
     * The pids and ports of the session markers that share a bit with {@code mask}, as many as the arrays hold;
     * the result is how many there are.
     */
    public static native int fillMarked(int mask, int[] pids, int[] ports);

    /** The session name a process's marker holds, or empty. */
    public static native String getSessionNameFromMarker(int pid);

    public static native int getProcessID();

    public static native int getPid();

    public static native boolean isLivePid(int pid);

    /** The first port of the range that no agent's marker holds, or -1. */
    public static native int getFreePort(int lower, int upper);

    public static native String getDefaultTaDir();

    public static native boolean matches(String text, String pattern);

    public static native long getSystemPhysicalMemorySize();

    public static native long[] readLongArrayFromFile(String path, int count);

    public static native void retransformClass(Class<?> type);

    public static native void createMutex();

    public static native String getWinRegStringValue(int root, String key, String name);

    public static native int getWinRegIntValue(int root, String key, String name);

    public static native boolean createWinRegKey(int root, String key);

    public static native boolean deleteWinRegValue(int root, String key, String name);

    public static native boolean setWinRegStringValue(int root, String key, String name, String value);

    public static native boolean setWinRegIntValue(int root, String key, String name, int value);

    // ---- Object storage ----

    public static native long createStorage(int objectCount);

    public static native void deleteStorage(long storage);

    /** Gives each object its first reference count. */
    public static native void createRefs(long storage, int[] objects, int[] counts, int count);

    public static native void setNewRefCount(long storage, int object, int count);

    public static native void setRefImpl(long storage, int object, int index, int target);

    public static native void setRefs(long storage, int[] sources, int[] indices, int[] targets, int count);

    public static native int getRefCountImpl(long storage, int object);

    public static native int getRefImpl(long storage, int object, int index);

    public static native void setAllocatorImpl(long storage, int object, int frame, int trn, long timestampMs);

    public static native int getAllocatorFrameImpl(long storage, int object);

    public static native int getAllocatorTrnImpl(long storage, int object);

    public static native long getAllocatorTimestampMs(long storage, int object);

    public static native void setGenerations(long storage, int[] objects, int[] generations, int count);

    public static native int getGenerationImpl(long storage, int object);

    public static native int getDepthToGcRootImpl(long storage, int object);

    public static native void setArrayLengths(long storage, int[] objects, int[] lengths, int count);

    public static native int getArrayLengthImpl(long storage, int object);

    public static native void setPrimitiveDataPositions(long storage, int[] objects, long[] positions, int count);

    public static native long getPrimitiveDataPositionImpl(long storage, int object);

    public static native void setOIDs(long storage, int[] objects, long[] oids, int count);

    public static native long getOIDImpl(long storage, int object);

    public static native void setCRC32(long storage, int object, int crc);

    public static native int getCRC32(long storage, int object);

    public static native String getStorageStatisticsImpl(long storage);

    /** The immediate dominator of an object after computeDominatorsImpl; 0 for the GC roots' own. */
    public static native int getDominatorImpl(long storage, int object);

    // ---- Dominators ----

    /**
     * The dominator step from an input file to an output file, with the
     * algorithm "snca" or "low_mem"; {@code folder} takes temporary files.
     */
    public static native boolean dc(String inputPath, String outputPath, String folder, String algorithm);

    /**
     * Immediate dominators of the marked objects from the roots: writes the
     * input file, runs {@code step} (which must run {@link #dc}), reads the
     * output file. With {@code reuseExisting} a sound output file is read
     * as it is.
     */
    public static native boolean computeDominatorsImpl(long storage, int[] markedBits, int[] roots, String inputPath,
            String outputPath, boolean reuseExisting, Runnable step);

    // ---- Reachability ----

    /** Marks in {@code visited} what is reachable from each start object. */
    public static native void f(long storage, int[] starts, int[] visited);

    /** The same over strong references, for the objects of {@code startBits}. */
    public static native void fStrong(long storage, int[] startBits, int[] visited, int[] excluded, int specialObject,
            int specialIndex);

    /** Ors {@code extra} into {@code visited}, then as {@link #f}. */
    public static native void f0m(long storage, int[] extra, int[] starts, int[] visited);

    /** Marks {@code objects[from..to)} in {@code visited}, then as {@link #f}. */
    public static native void f0o(long storage, int[] objects, int from, int to, int[] starts, int[] visited);

    /** Fills the distances from the GC roots; -1 where none reaches. */
    public static native void calculateDepthToGcRoot(long storage, int[] roots);
}
