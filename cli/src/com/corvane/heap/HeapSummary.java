package com.corvane.heap;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * The heap part of `corvane report` on a memory snapshot: how many objects,
 * bytes, classes and GC roots, and the class histogram (instances and
 * shallow size per class, biggest first), as a map that prints as text or
 * JSON. It reads the dump only: no analysis library is needed.
 */
public final class HeapSummary {
    private HeapSummary() {
    }

    public static Map<String, Object> build(HeapDump dump, int classes) {
        Map<String, long[]> byClass = new HashMap<>();
        long total = 0;
        for (int object = 1; object <= dump.objectCount(); object++) {
            long size = dump.shallowSize(object);
            total += size;
            long[] amounts = byClass.computeIfAbsent(dump.className(object), k -> new long[2]);
            amounts[0]++;
            amounts[1] += size;
        }
        List<Map.Entry<String, long[]>> rows = new ArrayList<>(byClass.entrySet());
        rows.sort((a, b) -> a.getValue()[1] != b.getValue()[1] ? Long.compare(b.getValue()[1], a.getValue()[1])
                : a.getValue()[0] != b.getValue()[0] ? Long.compare(b.getValue()[0], a.getValue()[0])
                : a.getKey().compareTo(b.getKey()));
        Map<String, Object> heap = new LinkedHashMap<>();
        heap.put("objects", (long) dump.objectCount());
        heap.put("shallowSize", total);
        heap.put("classCount", (long) byClass.size());
        heap.put("gcRoots", (long) dump.roots().size());
        List<Object> histogram = new ArrayList<>();
        for (Map.Entry<String, long[]> row : rows.subList(0, Math.min(classes, rows.size()))) {
            Map<String, Object> entry = new LinkedHashMap<>();
            entry.put("class", row.getKey());
            entry.put("instances", row.getValue()[0]);
            entry.put("shallowSize", row.getValue()[1]);
            histogram.add(entry);
        }
        heap.put("classes", histogram);
        return heap;
    }
}
