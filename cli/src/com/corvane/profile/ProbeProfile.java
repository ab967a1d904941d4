package com.corvane.profile;

import com.corvane.snapshot.EventTableDescription;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * The rows of the built-in probes' tables grouped as users ask for them:
 * database statements by SQL text, web requests by URI, I/O by file and by
 * address. A group counts its rows, their time (the duration of a row, or
 * for streams the time of their reads and writes), the longest, the rows
 * that failed, and for streams the bytes read and written.
 */
public final class ProbeProfile {
    public record Group(String key, long count, long timeNs, long maxNs, long errors, long readBytes, long writtenBytes) {
    }

    private ProbeProfile() {
    }

    /**
     * The rows of the table grouped by the column, most time first; empty
     * without the table. A row without a value in the column goes by the
     * other column's, in parentheses (a commit, which has no SQL, by its kind).
     */
    public static List<Group> groups(EventTables tables, String table, String column, String otherwise) {
        EventTableDescription description = tables.table(table);
        if (description == null) {
            return List.of();
        }
        Map<String, long[]> sums = new LinkedHashMap<>();
        for (Map<String, Object> row : tables.rows(description)) {
            Object value = row.get(column);
            String key = value != null || otherwise == null ? String.valueOf(value) : "(" + row.get(otherwise) + ")";
            long[] s = sums.computeIfAbsent(key, k -> new long[6]);
            long readBytes = number(row.get("Read bytes"));
            long writtenBytes = number(row.get("Written bytes"));
            long ns = row.containsKey("Read time ns") ? number(row.get("Read time ns")) + number(row.get("Write time ns"))
                    : number(row.get("duration_ns"));
            boolean failed = row.get("exception_str") != null || number(row.get("Status")) >= 500;
            s[0]++;
            s[1] += ns;
            s[2] = Math.max(s[2], ns);
            s[3] += failed ? 1 : 0;
            s[4] += readBytes;
            s[5] += writtenBytes;
        }
        List<Group> groups = new ArrayList<>();
        sums.forEach((key, s) -> groups.add(new Group(key, s[0], s[1], s[2], s[3], s[4], s[5])));
        groups.sort(Comparator.comparingLong(Group::timeNs).reversed());
        return groups;
    }

    /** The groups with the most rows first. */
    public static List<Group> mostFrequent(List<Group> groups) {
        List<Group> sorted = new ArrayList<>(groups);
        sorted.sort(Comparator.comparingLong(Group::count).reversed());
        return sorted;
    }

    /** The groups with the most bytes read and written first. */
    public static List<Group> mostBytes(List<Group> groups) {
        List<Group> sorted = new ArrayList<>(groups);
        sorted.sort(Comparator.comparingLong((Group g) -> g.readBytes() + g.writtenBytes()).reversed());
        return sorted;
    }

    private static long number(Object value) {
        return value instanceof Number ? ((Number) value).longValue() : 0;
    }
}
