package com.corvane;

import java.nio.file.Path;

/**
 * The natives of libcorvane.so for the analysis side: the heap graph of a
 * memory snapshot kept outside the Java heap behind a long handle, its
 * immediate dominators, reachable sets and distances from the GC roots.
 * Objects are numbered from 1; sets of objects are bit sets, bit
 * {@code i & 31} of word {@code i >> 5} standing for object {@code i}.
 */
public final class Natives {
    private static boolean ourLoaded;

    private Natives() {
    }

    /** Loads the library into this JVM, once. */
    public static synchronized void load(Path library) {
        if (!ourLoaded) {
            System.load(library.toAbsolutePath().toString());
            ourLoaded = true;
        }
    }

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
