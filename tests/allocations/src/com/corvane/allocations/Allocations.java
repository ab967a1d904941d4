package com.corvane.allocations;

import com.corvane.snapshot.Rows.AllocInfoRow;
import com.corvane.snapshot.Rows.AllocPointRow;
import com.corvane.snapshot.Rows.FrameRow;
import com.corvane.snapshot.Rows.MethodRow;
import com.corvane.snapshot.Rows.ThreadFrameRow;
import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;

/**
 * The allocation tables of a snapshot, read straight from the rows: each
 * recorded row as thread, allocating method, line, class and call path, and
 * each counted allocation point as method, line and class.
 */
final class Allocations {
    /** One "alloc_info" row. The path runs from the root to the allocating method, methods only. */
    record Recorded(String thread, String method, int line, String className, List<String> path, long objects,
            long bytes, long summedAgeMs) {
    }

    record Counted(String method, int line, String className, long objects) {
    }

    private Allocations() {
    }

    static List<Recorded> recorded(Snapshot snapshot) {
        Map<Integer, String> threadByTfi = new HashMap<>();
        for (Table.Entry<ThreadRow> thread : snapshot.tables().threads.liveEntries()) {
            if (thread.row().tfiIndex() > 0) {
                threadByTfi.put(thread.row().tfiIndex(), snapshot.string(thread.row().name()));
            }
        }
        List<Recorded> rows = new ArrayList<>();
        for (Table.Entry<ThreadFrameRow> link : snapshot.tables().threadFrames.liveEntries()) {
            AllocInfoRow row = snapshot.tables().allocInfo.get(link.index());
            if (row == null) {
                continue;
            }
            FrameRow classFrame = snapshot.tables().frames.get(link.row().frame());
            MethodRow classMethod = snapshot.tables().methods.get(snapshot.methodOfCodePoint(classFrame.codePoint()));
            String className = "<<init>>".equals(snapshot.string(classMethod.name()))
                    ? snapshot.string(classMethod.className()) : "not a class: " + snapshot.string(classMethod.name());
            int line = 0;
            List<String> path = new ArrayList<>();
            for (int frame = classFrame.parent(); frame > 0; frame = snapshot.tables().frames.get(frame).parent()) {
                int method = snapshot.methodOfCodePoint(snapshot.tables().frames.get(frame).codePoint());
                if (snapshot.isOwnLineMethod(method)) {
                    line = snapshot.lineOfCodePoint(snapshot.tables().frames.get(frame).codePoint());
                    continue;
                }
                path.add(0, snapshot.methodName(method));
            }
            String method = path.isEmpty() ? "" : path.get(path.size() - 1);
            rows.add(new Recorded(threadByTfi.get(link.row().tfiIndex()), method, line, className, path,
                    row.objectCount(), row.size(), row.summedAgeMs()));
        }
        return rows;
    }

    static List<Counted> counted(Snapshot snapshot) {
        List<Counted> rows = new ArrayList<>();
        for (Table.Entry<Long> entry : snapshot.tables().allocObjectCounts.liveEntries()) {
            AllocPointRow point = snapshot.tables().allocPoints.get(entry.index());
            rows.add(new Counted(snapshot.methodName(snapshot.methodOfCodePoint(point.codePoint())),
                    snapshot.lineOfCodePoint(point.codePoint()), snapshot.string(point.className()), entry.row()));
        }
        return rows;
    }

    /** Objects by class of the rows of one thread (null: all) allocated in the method. */
    static Map<String, Long> recordedByClass(List<Recorded> rows, String thread, String method) {
        Map<String, Long> byClass = new TreeMap<>();
        for (Recorded row : rows) {
            if ((thread == null || thread.equals(row.thread())) && row.method().equals(method) && row.objects() > 0) {
                byClass.merge(row.className(), row.objects(), Long::sum);
            }
        }
        return byClass;
    }

    /** Objects by class counted in the method, all lines together. */
    static Map<String, Long> countedByClass(List<Counted> rows, String method) {
        Map<String, Long> byClass = new TreeMap<>();
        for (Counted row : rows) {
            if (row.method().equals(method) && row.objects() > 0) {
                byClass.merge(row.className(), row.objects(), Long::sum);
            }
        }
        return byClass;
    }
}
