package com.corvane.profile;

import com.corvane.snapshot.Rows.AllocInfoRow;
import com.corvane.snapshot.Rows.CpuRow;
import com.corvane.snapshot.Rows.FrameRow;
import com.corvane.snapshot.Rows.ThreadFrameRow;
import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotFormatException;
import com.corvane.snapshot.Table;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.function.IntFunction;
import java.util.function.Predicate;

/**
 * The CPU profile of a snapshot: a call tree per thread, the same merged over
 * all threads, and the hot spots by method.
 *
 * <p>The tables hold, per thread and frame of the shared frame tree, the time
 * spent in the frame and below and its entry count. A frame of the pseudo
 * method "&lt;&lt;own&gt;&gt;" only carries the line at which its parent stood
 * when sampled; its time is the parent's own time, so it is folded into it.
 */
public final class Profile {
    private final List<ThreadProfile> myThreads;
    private final CallNode myAllThreads;
    private final List<HotSpot> myHotSpots;

    private Profile(List<ThreadProfile> threads, CallNode allThreads, List<HotSpot> hotSpots) {
        myThreads = threads;
        myAllThreads = allThreads;
        myHotSpots = hotSpots;
    }

    /** Threads with recorded time, the busiest first. */
    public List<ThreadProfile> threads() {
        return myThreads;
    }

    /** All threads' trees merged into one, by method path. */
    public CallNode allThreads() {
        return myAllThreads;
    }

    /** Methods by own time, the highest first. */
    public List<HotSpot> hotSpots() {
        return myHotSpots;
    }

    public long totalNs() {
        return myAllThreads.totalNs();
    }

    public static Profile build(Snapshot snapshot) throws SnapshotFormatException {
        return build(snapshot, index -> snapshot.tables().cpuProfiling.get(index));
    }

    /**
     * The recorded allocations as the same kind of tree: the "time" of a node is bytes, its "calls" are
     * objects. Allocated classes are the leaves, named by class.
     */
    public static Profile buildAllocations(Snapshot snapshot) throws SnapshotFormatException {
        return build(snapshot, index -> {
            AllocInfoRow row = snapshot.tables().allocInfo.get(index);
            return row == null || row.objectCount() == 0 ? null : new CpuRow(row.size(), row.objectCount());
        });
    }

    /** From the measures of each thread_frame row (null: none). */
    private static Profile build(Snapshot snapshot, IntFunction<CpuRow> measureOf) throws SnapshotFormatException {
        Map<Integer, Table.Entry<ThreadRow>> threadByTfi = new HashMap<>();
        for (Table.Entry<ThreadRow> thread : snapshot.tables().threads.liveEntries()) {
            if (thread.row().tfiIndex() > 0) {
                threadByTfi.put(thread.row().tfiIndex(), thread);
            }
        }
        // Per thread (by TFI index): frame -> measures.
        Map<Integer, Map<Integer, CpuRow>> measuresByTfi = new TreeMap<>();
        for (Table.Entry<ThreadFrameRow> link : snapshot.tables().threadFrames.liveEntries()) {
            CpuRow cpu = measureOf.apply(link.index());
            if (cpu == null) {
                continue;
            }
            measuresByTfi.computeIfAbsent(link.row().tfiIndex(), k -> new HashMap<>()).put(link.row().frame(), cpu);
        }

        List<ThreadProfile> threads = new ArrayList<>();
        for (Map.Entry<Integer, Map<Integer, CpuRow>> measures : measuresByTfi.entrySet()) {
            Table.Entry<ThreadRow> thread = threadByTfi.get(measures.getKey());
            String name = threadName(snapshot, thread, measures.getKey());
            CallNode root = new CallNode(0, name);
            new ThreadTreeBuilder(snapshot, name).build(measures.getValue(), root);
            root.finish();
            ThreadRow row = thread == null ? null : thread.row();
            threads.add(new ThreadProfile(row == null ? 0 : row.trn(), name,
                    row == null ? null : snapshot.string(row.group()), row != null && row.daemon() != 0,
                    row == null ? 0 : row.startUptimeNs(), row == null ? 0 : row.endUptimeNs(), root));
        }
        threads.sort((a, b) -> {
            int byTime = Long.compare(b.root().totalNs(), a.root().totalNs());
            return byTime != 0 ? byTime : Integer.compare(a.trn(), b.trn());
        });
        return of(threads);
    }

    /** The same profile restricted to the threads the filter accepts. */
    public Profile select(Predicate<ThreadProfile> filter) {
        List<ThreadProfile> kept = new ArrayList<>();
        for (ThreadProfile thread : myThreads) {
            if (filter.test(thread)) {
                kept.add(thread);
            }
        }
        return of(kept);
    }

    /** Hot spots of one thread alone. */
    public static List<HotSpot> hotSpots(ThreadProfile thread) {
        return hotSpots(thread.root());
    }

    private static Profile of(List<ThreadProfile> threads) {
        CallNode all = new CallNode(0, "<all threads>");
        for (ThreadProfile thread : threads) {
            all.mergeFrom(thread.root());
        }
        all.finish();
        return new Profile(threads, all, hotSpots(all));
    }

    private static String threadName(Snapshot snapshot, Table.Entry<ThreadRow> thread, int tfi) {
        if (thread == null) {
            return "<thread of data row " + tfi + ">";
        }
        String name = snapshot.string(thread.row().name());
        return name != null ? name : "<thread " + thread.row().trn() + ">";
    }

    private static List<HotSpot> hotSpots(CallNode all) {
        Map<Integer, long[]> byMethod = new HashMap<>();
        Map<Integer, String> names = new HashMap<>();
        collect(all, byMethod, names, new HashMap<>());
        List<HotSpot> spots = new ArrayList<>();
        for (Map.Entry<Integer, long[]> entry : byMethod.entrySet()) {
            long[] m = entry.getValue();
            spots.add(new HotSpot(entry.getKey(), names.get(entry.getKey()), m[0], m[1], m[2]));
        }
        spots.sort((a, b) -> {
            int byOwn = Long.compare(b.ownNs(), a.ownNs());
            if (byOwn != 0) {
                return byOwn;
            }
            int byTotal = Long.compare(b.totalNs(), a.totalNs());
            return byTotal != 0 ? byTotal : a.name().compareTo(b.name());
        });
        return spots;
    }

    /** Own time and calls from every node; total time only where the method is not already on the path. */
    private static void collect(CallNode node, Map<Integer, long[]> byMethod, Map<Integer, String> names,
            Map<Integer, Integer> onPath) {
        int method = node.method();
        if (method != 0) {
            long[] m = byMethod.computeIfAbsent(method, k -> new long[3]);
            names.putIfAbsent(method, node.name());
            m[0] += node.ownNs();
            m[2] += node.invocations();
            if (onPath.getOrDefault(method, 0) == 0) {
                m[1] += node.totalNs();
            }
            onPath.merge(method, 1, Integer::sum);
        }
        for (CallNode child : node.children()) {
            collect(child, byMethod, names, onPath);
        }
        if (method != 0) {
            onPath.merge(method, -1, Integer::sum);
        }
    }

    /** Rebuilds one thread's part of the shared frame tree, then merges it by method. */
    private static final class ThreadTreeBuilder {
        private final Snapshot mySnapshot;
        private final String myThreadName;
        private final Map<Integer, RawFrame> myFrames = new HashMap<>();
        private final RawFrame myRoot = new RawFrame(0, 0, false);

        ThreadTreeBuilder(Snapshot snapshot, String threadName) {
            mySnapshot = snapshot;
            myThreadName = threadName;
            myFrames.put(0, myRoot);
        }

        void build(Map<Integer, CpuRow> measures, CallNode root) throws SnapshotFormatException {
            for (Map.Entry<Integer, CpuRow> entry : measures.entrySet()) {
                RawFrame frame = frame(entry.getKey());
                frame.measured = true;
                frame.timeNs = entry.getValue().timeNs();
                frame.invocations = entry.getValue().invocations();
            }
            root.myTotalNs = total(myRoot);
            convert(myRoot, root);
        }

        /** The frame, with every ancestor up to the root made present. */
        private RawFrame frame(int index) throws SnapshotFormatException {
            RawFrame known = myFrames.get(index);
            if (known != null) {
                return known;
            }
            List<Integer> missing = new ArrayList<>();
            int current = index;
            // A chain longer than the table has rows loops. Counting the live
            // rows here, once a frame, made large trees quadratic.
            int frameCount = mySnapshot.tables().frames.entries().size();
            while (!myFrames.containsKey(current)) {
                missing.add(current);
                if (missing.size() > frameCount + 1) {
                    throw new SnapshotFormatException(SnapshotFormatException.Kind.CORRUPT, -1,
                            "corrupt snapshot: the parent chain of frame " + index + " loops");
                }
                FrameRow row = mySnapshot.tables().frames.get(current);
                if (row == null) {
                    throw new SnapshotFormatException(SnapshotFormatException.Kind.CORRUPT, -1,
                            "corrupt snapshot: frame " + current + ", on a call path of thread \"" + myThreadName
                                    + "\", is not in the frame table");
                }
                current = row.parent();
            }
            RawFrame parent = myFrames.get(current);
            for (int i = missing.size() - 1; i >= 0; i--) {
                int frameIndex = missing.get(i);
                int codePoint = mySnapshot.tables().frames.get(frameIndex).codePoint();
                int method = mySnapshot.methodOfCodePoint(codePoint);
                RawFrame frame = new RawFrame(frameIndex, method, mySnapshot.isOwnLineMethod(method));
                parent.children.add(frame);
                myFrames.put(frameIndex, frame);
                parent = frame;
            }
            return parent;
        }

        /**
         * A frame spans at least its callees. Its own row can hold less: a frame still open when the
         * snapshot was taken, or a CPU-timed caller of a wall-timed callee. Raising it keeps own times
         * from adding up to more than the thread's total.
         */
        private static long total(RawFrame frame) {
            long callees = 0;
            for (RawFrame child : frame.children) {
                callees += total(child);
            }
            frame.totalNs = frame.measured ? Math.max(frame.timeNs, callees) : callees;
            return frame.totalNs;
        }

        private void convert(RawFrame raw, CallNode node) {
            for (RawFrame child : raw.children) {
                if (child.ownLine) {
                    // Only the line of its parent: what hangs below it (allocated classes) is the parent's.
                    convert(child, node);
                    continue;
                }
                CallNode callee = node.child(child.method, AllocationProfile.displayName(mySnapshot, child.method));
                callee.myTotalNs += child.totalNs;
                callee.myInvocations += child.invocations;
                convert(child, callee);
            }
        }
    }

    private static final class RawFrame {
        final int frame;
        final int method;
        final boolean ownLine;
        final List<RawFrame> children = new ArrayList<>(2);
        boolean measured;
        long timeNs;
        long invocations;
        long totalNs;

        RawFrame(int frame, int method, boolean ownLine) {
            this.frame = frame;
            this.method = method;
            this.ownLine = ownLine;
        }
    }
}
