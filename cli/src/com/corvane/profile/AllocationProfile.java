package com.corvane.profile;

import com.corvane.snapshot.Rows.AllocInfoRow;
import com.corvane.snapshot.Rows.AllocPointRow;
import com.corvane.snapshot.Rows.FrameRow;
import com.corvane.snapshot.Rows.MethodRow;
import com.corvane.snapshot.Rows.ThreadFrameRow;
import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * What a snapshot says about allocations and call counts.
 *
 * <p>Recorded objects (exact or sampled stacks) sit in "alloc_info", per
 * thread and frame: the frame is the allocated class's pseudo method
 * "&lt;&lt;init&gt;&gt;" below the allocating method's call path, with the
 * line of the allocation as a "&lt;&lt;own&gt;&gt;" frame between. Counted
 * objects sit in "alloc_object_count", per allocation point (a method, a
 * line, a class). Call counts sit in "call_count", by method.
 */
public final class AllocationProfile {
    /** The pseudo method of an allocated class. */
    public static final String CLASS_METHOD_NAME = "<<init>>";

    /** Objects and bytes of one class, site or thread; bytes are 0 for counted objects. */
    public record Amount(String name, long objects, long bytes) {
    }

    /** One thread's recorded objects, with the classes it made most of. */
    public record ThreadAmount(String name, int trn, boolean daemon, long objects, long bytes, long summedAgeMs,
            List<Amount> classes) {
    }

    public record CallCount(String method, long calls) {
    }

    private final long myObjects;
    private final long myBytes;
    private final long mySummedAgeMs;
    private final List<Amount> myByClass;
    private final List<Amount> myBySite;
    private final List<ThreadAmount> myThreads;
    private final long myCountedObjects;
    private final List<Amount> myCountedByClass;
    private final List<Amount> myCountedBySite;
    private final List<CallCount> myCallCounts;

    private AllocationProfile(long objects, long bytes, long summedAgeMs, List<Amount> byClass, List<Amount> bySite,
            List<ThreadAmount> threads, long countedObjects, List<Amount> countedByClass, List<Amount> countedBySite,
            List<CallCount> callCounts) {
        myObjects = objects;
        myBytes = bytes;
        mySummedAgeMs = summedAgeMs;
        myByClass = byClass;
        myBySite = bySite;
        myThreads = threads;
        myCountedObjects = countedObjects;
        myCountedByClass = countedByClass;
        myCountedBySite = countedBySite;
        myCallCounts = callCounts;
    }

    /** Objects recorded with a stack, and their bytes. */
    public long objects() {
        return myObjects;
    }

    public long bytes() {
        return myBytes;
    }

    /** Milliseconds that recorded objects lived, summed over those that died. */
    public long summedAgeMs() {
        return mySummedAgeMs;
    }

    /** Recorded objects by class, the most bytes first. */
    public List<Amount> byClass() {
        return myByClass;
    }

    /** Recorded objects by allocation site ("method:line"), the most bytes first. */
    public List<Amount> bySite() {
        return myBySite;
    }

    /** Threads that recorded objects, the most bytes first. */
    public List<ThreadAmount> threads() {
        return myThreads;
    }

    /** Objects counted without stacks. */
    public long countedObjects() {
        return myCountedObjects;
    }

    /** Counted objects by class, the most first. */
    public List<Amount> countedByClass() {
        return myCountedByClass;
    }

    /** Counted objects by allocation point ("method:line"), the most first. */
    public List<Amount> countedBySite() {
        return myCountedBySite;
    }

    /** Counted calls by method, the most first. */
    public List<CallCount> callCounts() {
        return myCallCounts;
    }

    public boolean hasRecordedObjects() {
        return myObjects > 0 || mySummedAgeMs > 0;
    }

    public boolean hasCountedObjects() {
        return myCountedObjects > 0;
    }

    public static AllocationProfile build(Snapshot snapshot) {
        Map<Integer, ThreadRow> threadByTfi = new HashMap<>();
        for (Table.Entry<ThreadRow> thread : snapshot.tables().threads.liveEntries()) {
            if (thread.row().tfiIndex() > 0) {
                threadByTfi.put(thread.row().tfiIndex(), thread.row());
            }
        }
        Sums byClass = new Sums();
        Sums bySite = new Sums();
        Map<Integer, Sums> classesByTfi = new HashMap<>();
        Map<Integer, long[]> totalsByTfi = new HashMap<>();
        long objects = 0;
        long bytes = 0;
        long age = 0;
        for (Table.Entry<ThreadFrameRow> link : snapshot.tables().threadFrames.liveEntries()) {
            AllocInfoRow row = snapshot.tables().allocInfo.get(link.index());
            if (row == null) {
                continue;
            }
            int frame = link.row().frame();
            String className = className(snapshot, frame);
            byClass.add(className, row.objectCount(), row.size());
            bySite.add(site(snapshot, frame), row.objectCount(), row.size());
            int tfi = link.row().tfiIndex();
            classesByTfi.computeIfAbsent(tfi, k -> new Sums()).add(className, row.objectCount(), row.size());
            long[] totals = totalsByTfi.computeIfAbsent(tfi, k -> new long[3]);
            totals[0] += row.objectCount();
            totals[1] += row.size();
            totals[2] += row.summedAgeMs();
            objects += row.objectCount();
            bytes += row.size();
            age += row.summedAgeMs();
        }
        List<ThreadAmount> threads = new ArrayList<>();
        for (Map.Entry<Integer, long[]> entry : totalsByTfi.entrySet()) {
            ThreadRow thread = threadByTfi.get(entry.getKey());
            String name = thread == null ? "<thread of data row " + entry.getKey() + ">"
                    : nameOr(snapshot.string(thread.name()), "<thread " + thread.trn() + ">");
            long[] t = entry.getValue();
            threads.add(new ThreadAmount(name, thread == null ? 0 : thread.trn(), thread != null && thread.daemon() != 0,
                    t[0], t[1], t[2], classesByTfi.get(entry.getKey()).sorted()));
        }
        threads.sort(Comparator.comparingLong(ThreadAmount::bytes).reversed().thenComparingLong(ThreadAmount::objects)
                .thenComparing(ThreadAmount::name));

        Sums countedByClass = new Sums();
        Sums countedBySite = new Sums();
        long counted = 0;
        for (Table.Entry<Long> entry : snapshot.tables().allocObjectCounts.liveEntries()) {
            AllocPointRow point = snapshot.tables().allocPoints.get(entry.index());
            long count = entry.row();
            if (point == null || count == 0) {
                continue;
            }
            String className = nameOr(snapshot.string(point.className()), "<unknown class>");
            countedByClass.add(className, count, 0);
            countedBySite.add(siteName(snapshot, snapshot.methodOfCodePoint(point.codePoint()),
                    snapshot.lineOfCodePoint(point.codePoint())), count, 0);
            counted += count;
        }

        List<CallCount> calls = new ArrayList<>();
        for (Table.Entry<Long> entry : snapshot.tables().callCounts.liveEntries()) {
            if (entry.row() != 0) {
                calls.add(new CallCount(snapshot.methodName(entry.index()), entry.row()));
            }
        }
        calls.sort(Comparator.comparingLong(CallCount::calls).reversed().thenComparing(CallCount::method));
        return new AllocationProfile(objects, bytes, age, byClass.sorted(), bySite.sorted(), threads, counted,
                countedByClass.sorted(), countedBySite.sorted(), calls);
    }

    /** The allocated class of a frame, or the method's name for a frame of something else. */
    static String className(Snapshot snapshot, int frame) {
        FrameRow row = snapshot.tables().frames.get(frame);
        if (row == null) {
            return "<frame " + frame + ">";
        }
        int method = snapshot.methodOfCodePoint(row.codePoint());
        return displayName(snapshot, method);
    }

    /** For an allocated class's pseudo method the class; otherwise the method's name. */
    public static String displayName(Snapshot snapshot, int method) {
        MethodRow row = snapshot.tables().methods.get(method);
        if (row != null && CLASS_METHOD_NAME.equals(snapshot.string(row.name()))) {
            return nameOr(snapshot.string(row.className()), "<unknown class>");
        }
        return snapshot.methodName(method);
    }

    /** The allocating method and line above the class frame: "method:line", or the method alone. */
    static String site(Snapshot snapshot, int frame) {
        FrameRow classFrame = snapshot.tables().frames.get(frame);
        if (classFrame == null || classFrame.parent() <= 0) {
            return "<no stack>";
        }
        return Places.place(snapshot, classFrame.parent());
    }

    static String siteName(Snapshot snapshot, int method, int line) {
        String name = snapshot.methodName(method);
        return line > 0 ? name + ":" + line : name;
    }

    private static String nameOr(String name, String fallback) {
        return name == null || name.isEmpty() ? fallback : name;
    }

    /** Objects and bytes by name. */
    private static final class Sums {
        private final Map<String, long[]> myByName = new LinkedHashMap<>();

        void add(String name, long objects, long bytes) {
            long[] sum = myByName.computeIfAbsent(name, k -> new long[2]);
            sum[0] += objects;
            sum[1] += bytes;
        }

        List<Amount> sorted() {
            List<Amount> amounts = new ArrayList<>();
            for (Map.Entry<String, long[]> entry : myByName.entrySet()) {
                amounts.add(new Amount(entry.getKey(), entry.getValue()[0], entry.getValue()[1]));
            }
            amounts.sort(Comparator.comparingLong(Amount::bytes).reversed()
                    .thenComparing(Comparator.comparingLong(Amount::objects).reversed()).thenComparing(Amount::name));
            return amounts;
        }
    }
}
