package com.corvane.tracing;

import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Rows.CpuRow;
import com.corvane.snapshot.Rows.FrameRow;
import com.corvane.snapshot.Rows.MethodRow;
import com.corvane.snapshot.Rows.ThreadFrameRow;
import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Predicate;

/**
 * One thread's measured frames in a snapshot, each with its path of method
 * names from the root ("TracedShapes$Worker.run/TracedShapes.body").
 */
final class CallTree {
    record Frame(int index, List<String> path, long timeNs, long invocations) {
        String joined() {
            return String.join("/", path);
        }

        String method() {
            return path.get(path.size() - 1);
        }
    }

    private final List<Frame> myFrames = new ArrayList<>();

    private CallTree() {
    }

    /** The tree of the thread with this name, which must keep its own data. */
    static CallTree of(Snapshot snapshot, String threadName) {
        ThreadRow thread = null;
        for (Table.Entry<ThreadRow> entry : snapshot.tables().threads.liveEntries()) {
            if (thread == null && threadName.equals(snapshot.string(entry.row().name()))) {
                thread = entry.row();
            }
        }
        assertNotNull(thread, "thread " + threadName);
        assertTrue(thread.tfiIndex() > 0, threadName + " keeps its own data");
        return of(snapshot, thread.tfiIndex());
    }

    static CallTree of(Snapshot snapshot, int tfiIndex) {
        CallTree tree = new CallTree();
        for (Table.Entry<ThreadFrameRow> link : snapshot.tables().threadFrames.liveEntries()) {
            if (link.row().tfiIndex() != tfiIndex) {
                continue;
            }
            CpuRow cpu = snapshot.tables().cpuProfiling.get(link.index());
            if (cpu != null) {
                tree.myFrames.add(new Frame(link.row().frame(), path(snapshot, link.row().frame()), cpu.timeNs(),
                        cpu.invocations()));
            }
        }
        return tree;
    }

    /** "SimpleClass.method" of each frame from the root down to `frame`. */
    static List<String> path(Snapshot snapshot, int frame) {
        List<String> path = new ArrayList<>();
        for (int current = frame; current >= 1; ) {
            FrameRow row = snapshot.tables().frames.get(current);
            path.add(0, shortName(snapshot, snapshot.methodOfCodePoint(row.codePoint())));
            current = row.parent();
        }
        return path;
    }

    static String shortName(Snapshot snapshot, int method) {
        MethodRow row = snapshot.tables().methods.get(method);
        if (row == null) {
            return "<method #" + method + ">";
        }
        String className = snapshot.string(row.className());
        return className.substring(className.lastIndexOf('.') + 1) + "." + snapshot.string(row.name());
    }

    List<Frame> frames() {
        return myFrames;
    }

    /** The frames whose method is `method`. */
    List<Frame> framesOf(String method) {
        List<Frame> found = new ArrayList<>();
        for (Frame frame : myFrames) {
            if (frame.method().equals(method)) {
                found.add(frame);
            }
        }
        return found;
    }

    long invocationsOf(String method) {
        return framesOf(method).stream().mapToLong(Frame::invocations).sum();
    }

    /**
     * Frames by their path with only the methods that `keep` accepts, for
     * frames whose own method it accepts; a path that stands for two frames
     * is listed twice.
     */
    Map<String, List<Frame>> byFilteredPath(Predicate<String> keep) {
        Map<String, List<Frame>> result = new LinkedHashMap<>();
        for (Frame frame : myFrames) {
            if (!keep.test(frame.method())) {
                continue;
            }
            List<String> kept = new ArrayList<>();
            for (String method : frame.path()) {
                if (keep.test(method)) {
                    kept.add(method);
                }
            }
            result.computeIfAbsent(String.join("/", kept), k -> new ArrayList<>()).add(frame);
        }
        return result;
    }
}
