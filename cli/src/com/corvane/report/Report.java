package com.corvane.report;

import com.corvane.profile.AllocationProfile;
import com.corvane.profile.CallNode;
import com.corvane.profile.EventTables;
import com.corvane.profile.ExceptionProfile;
import com.corvane.profile.HotSpot;
import com.corvane.profile.MonitorProfile;
import com.corvane.profile.ProbeProfile;
import com.corvane.profile.Profile;
import com.corvane.profile.Summary;
import com.corvane.profile.ThreadProfile;
import com.corvane.snapshot.Snapshot;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * The content of a report as plain maps and lists: summary, hot spots,
 * threads, call tree. The JSON output writes it as it is and the text output
 * lays the same values out for a terminal, so both always say the same.
 */
public final class Report {
    /** How much to show: hot spot rows, hot spot rows per thread, callees a node in the tree, tree depth. */
    public record Limits(int hotSpots, int threadHotSpots, int top, int depth) {
    }

    private Report() {
    }

    public static Map<String, Object> build(Snapshot snapshot, Profile profile, Limits limits) {
        Map<String, Object> report = new LinkedHashMap<>();
        Map<String, Map<String, Object>> summary = Summary.of(snapshot, profile);
        report.put("summary", summary);
        boolean withCalls = Boolean.TRUE.equals(summary.get("modes").get("invocationCounts"));
        long total = profile.totalNs();
        report.put("totalTimeNs", total);
        report.put("hotSpots", hotSpots(profile.hotSpots(), limits.hotSpots(), total, withCalls));
        report.put("threads", threads(profile, limits, total, withCalls));
        report.put("callTree", callTree(profile, limits, total, withCalls));
        AllocationProfile allocations = AllocationProfile.build(snapshot);
        if (allocations.hasRecordedObjects() || allocations.hasCountedObjects()) {
            report.put("allocations", allocations(allocations, limits));
        }
        if (!allocations.callCounts().isEmpty()) {
            report.put("callCounts", callCounts(allocations.callCounts(), limits.hotSpots()));
        }
        MonitorProfile monitors = MonitorProfile.build(snapshot);
        if (!monitors.entries().isEmpty() || monitors.durationNs() != null) {
            report.put("monitors", monitors(monitors, limits.hotSpots()));
        }
        ExceptionProfile exceptions = ExceptionProfile.build(snapshot);
        if (!exceptions.entries().isEmpty()) {
            report.put("exceptions", exceptions(exceptions, limits.hotSpots()));
        }
        if (!snapshot.eventTables().isEmpty()) {
            EventTables tables = new EventTables(snapshot);
            probeSections(report, tables, limits.hotSpots());
            report.put("eventTables", eventTables(tables));
        }
        return report;
    }

    /**
     * What the built-in probes recorded, grouped: database statements by SQL
     * text (slowest and most frequent), web requests by URI, I/O by file and
     * by address (most bytes first). A section is there when its table is.
     */
    private static void probeSections(Map<String, Object> report, EventTables tables, int limit) {
        List<ProbeProfile.Group> statements = ProbeProfile.groups(tables, "JDBC Statements", "SQL", "Kind");
        if (!statements.isEmpty()) {
            Map<String, Object> section = new LinkedHashMap<>();
            section.put("slowest", groups(statements, limit));
            section.put("mostFrequent", groups(ProbeProfile.mostFrequent(statements), limit));
            report.put("databaseStatements", section);
        }
        List<ProbeProfile.Group> requests = ProbeProfile.groups(tables, "Servlet Requests", "URI", null);
        if (!requests.isEmpty()) {
            report.put("webRequests", groups(requests, limit));
        }
        Map<String, Object> io = new LinkedHashMap<>();
        for (String[] kind : new String[][] {{"files", "Files", "File"}, {"sockets", "Sockets", "Address"}}) {
            List<ProbeProfile.Group> streams = ProbeProfile.groups(tables, kind[1], kind[2], null);
            if (!streams.isEmpty()) {
                io.put(kind[0], groups(ProbeProfile.mostBytes(streams), limit));
            }
        }
        if (!io.isEmpty()) {
            report.put("io", io);
        }
    }

    private static List<Map<String, Object>> groups(List<ProbeProfile.Group> groups, int limit) {
        List<Map<String, Object>> rows = new ArrayList<>();
        for (ProbeProfile.Group g : groups.subList(0, Math.min(limit, groups.size()))) {
            Map<String, Object> r = new LinkedHashMap<>();
            r.put("key", g.key());
            r.put("count", g.count());
            r.put("timeNs", g.timeNs());
            r.put("maxNs", g.maxNs());
            r.put("errors", g.errors());
            if (g.readBytes() + g.writtenBytes() > 0) {
                r.put("readBytes", g.readBytes());
                r.put("writtenBytes", g.writtenBytes());
            }
            rows.add(r);
        }
        return rows;
    }

    /** Each event table with its row count and, where rows have durations, the slowest three. */
    private static List<Map<String, Object>> eventTables(EventTables tables) {
        List<Map<String, Object>> section = new ArrayList<>();
        for (Map<String, Object> table : tables.list()) {
            Map<String, Object> t = new LinkedHashMap<>();
            t.put("name", table.get("name"));
            t.put("rows", table.get("rows"));
            List<Map<String, Object>> slowest = tables.slowest(tables.table((String) table.get("name")), 3);
            if (!slowest.isEmpty()) {
                t.put("slowest", slowest);
            }
            section.add(t);
        }
        return section;
    }

    /** Blocked and waiting time: totals, then the longest rows of each kind. */
    private static Map<String, Object> monitors(MonitorProfile monitors, int limit) {
        Map<String, Object> section = new LinkedHashMap<>();
        if (monitors.durationNs() != null) {
            section.put("recordingTimeNs", monitors.durationNs());
        }
        section.put("blocked", monitorRows(monitors.blocked(), limit));
        section.put("waits", monitorRows(monitors.waits(), limit));
        return section;
    }

    private static Map<String, Object> monitorRows(List<MonitorProfile.Entry> entries, int limit) {
        long total = MonitorProfile.totalTimeNs(entries);
        List<Object> rows = new ArrayList<>();
        for (MonitorProfile.Entry entry : entries) {
            if (rows.size() >= limit) {
                break;
            }
            Map<String, Object> r = new LinkedHashMap<>();
            r.put("thread", entry.thread());
            r.put("trn", entry.trn());
            if (!entry.waiting()) {
                r.put("owner", entry.owner());
                r.put("ownerTrn", entry.ownerTrn());
            }
            r.put("monitorClass", entry.monitorClass());
            r.put("place", entry.place());
            r.put("timeNs", entry.timeNs());
            r.put("percent", percent(entry.timeNs(), total));
            r.put("count", entry.count());
            r.put("path", entry.path());
            rows.add(r);
        }
        Map<String, Object> kind = new LinkedHashMap<>();
        kind.put("timeNs", total);
        kind.put("count", MonitorProfile.totalCount(entries));
        kind.put("rowCount", entries.size());
        kind.put("rows", rows);
        return kind;
    }

    /** Exceptions by class, then the rows with the most. */
    private static Map<String, Object> exceptions(ExceptionProfile exceptions, int limit) {
        long total = exceptions.total();
        Map<String, Long> byClass = new LinkedHashMap<>();
        for (ExceptionProfile.Entry entry : exceptions.entries()) {
            byClass.merge(entry.exceptionClass(), entry.count(), Long::sum);
        }
        List<Object> classes = new ArrayList<>();
        byClass.entrySet().stream()
                .sorted(Map.Entry.<String, Long>comparingByValue().reversed().thenComparing(Map.Entry.comparingByKey()))
                .limit(limit).forEach(e -> {
                    Map<String, Object> c = new LinkedHashMap<>();
                    c.put("name", e.getKey());
                    c.put("count", e.getValue());
                    c.put("percent", percent(e.getValue(), total));
                    classes.add(c);
                });
        List<Object> rows = new ArrayList<>();
        for (ExceptionProfile.Entry entry : exceptions.entries()) {
            if (rows.size() >= limit) {
                break;
            }
            Map<String, Object> r = new LinkedHashMap<>();
            r.put("exceptionClass", entry.exceptionClass());
            r.put("thread", entry.thread());
            r.put("trn", entry.trn());
            r.put("thrownAt", entry.thrownAt());
            r.put("caughtAt", entry.caughtAt());
            r.put("count", entry.count());
            r.put("percent", percent(entry.count(), total));
            r.put("throwPath", entry.throwPath());
            rows.add(r);
        }
        Map<String, Object> section = new LinkedHashMap<>();
        section.put("count", total);
        section.put("classCount", byClass.size());
        section.put("rowCount", exceptions.entries().size());
        section.put("classes", classes);
        section.put("rows", rows);
        return section;
    }

    /** Recorded objects by class, site and thread, by size and by count; counted objects by class and site. */
    private static Map<String, Object> allocations(AllocationProfile allocations, Limits limits) {
        Map<String, Object> section = new LinkedHashMap<>();
        if (allocations.hasRecordedObjects()) {
            Map<String, Object> recorded = new LinkedHashMap<>();
            long objects = allocations.objects();
            long bytes = allocations.bytes();
            recorded.put("objects", objects);
            recorded.put("bytes", bytes);
            recorded.put("summedAgeOfCollectedMs", allocations.summedAgeMs());
            recorded.put("classCount", allocations.byClass().size());
            recorded.put("siteCount", allocations.bySite().size());
            recorded.put("classesBySize", amounts(allocations.byClass(), limits.hotSpots(), objects, bytes));
            recorded.put("classesByCount", amounts(byCount(allocations.byClass()), limits.hotSpots(), objects, bytes));
            recorded.put("sitesBySize", amounts(allocations.bySite(), limits.hotSpots(), objects, bytes));
            recorded.put("sitesByCount", amounts(byCount(allocations.bySite()), limits.hotSpots(), objects, bytes));
            List<Object> threads = new ArrayList<>();
            for (AllocationProfile.ThreadAmount thread : allocations.threads()) {
                Map<String, Object> t = new LinkedHashMap<>();
                t.put("name", thread.name());
                t.put("trn", thread.trn());
                t.put("daemon", thread.daemon());
                t.put("objects", thread.objects());
                t.put("bytes", thread.bytes());
                t.put("bytesPercent", percent(thread.bytes(), bytes));
                t.put("summedAgeOfCollectedMs", thread.summedAgeMs());
                t.put("classesBySize", amounts(thread.classes(), limits.threadHotSpots(), thread.objects(),
                        thread.bytes()));
                threads.add(t);
            }
            recorded.put("threads", threads);
            section.put("recorded", recorded);
        }
        if (allocations.hasCountedObjects()) {
            Map<String, Object> counted = new LinkedHashMap<>();
            long objects = allocations.countedObjects();
            counted.put("objects", objects);
            counted.put("classCount", allocations.countedByClass().size());
            counted.put("siteCount", allocations.countedBySite().size());
            counted.put("classes", amounts(allocations.countedByClass(), limits.hotSpots(), objects, 0));
            counted.put("sites", amounts(allocations.countedBySite(), limits.hotSpots(), objects, 0));
            section.put("counted", counted);
        }
        return section;
    }

    private static List<AllocationProfile.Amount> byCount(List<AllocationProfile.Amount> amounts) {
        List<AllocationProfile.Amount> sorted = new ArrayList<>(amounts);
        sorted.sort(Comparator.comparingLong(AllocationProfile.Amount::objects).reversed()
                .thenComparing(Comparator.comparingLong(AllocationProfile.Amount::bytes).reversed())
                .thenComparing(AllocationProfile.Amount::name));
        return sorted;
    }

    /** The first `limit` amounts; bytes only where there are any. */
    private static List<Object> amounts(List<AllocationProfile.Amount> amounts, int limit, long objects, long bytes) {
        List<Object> rows = new ArrayList<>();
        for (AllocationProfile.Amount amount : amounts) {
            if (rows.size() >= limit) {
                break;
            }
            Map<String, Object> a = new LinkedHashMap<>();
            a.put("name", amount.name());
            a.put("objects", amount.objects());
            a.put("objectsPercent", percent(amount.objects(), objects));
            if (bytes > 0) {
                a.put("bytes", amount.bytes());
                a.put("bytesPercent", percent(amount.bytes(), bytes));
            }
            rows.add(a);
        }
        return rows;
    }

    private static Map<String, Object> callCounts(List<AllocationProfile.CallCount> counts, int limit) {
        long total = 0;
        for (AllocationProfile.CallCount count : counts) {
            total += count.calls();
        }
        List<Object> methods = new ArrayList<>();
        for (AllocationProfile.CallCount count : counts) {
            if (methods.size() >= limit) {
                break;
            }
            Map<String, Object> m = new LinkedHashMap<>();
            m.put("method", count.method());
            m.put("calls", count.calls());
            m.put("percent", percent(count.calls(), total));
            methods.add(m);
        }
        Map<String, Object> section = new LinkedHashMap<>();
        section.put("methodCount", counts.size());
        section.put("totalCalls", total);
        section.put("methods", methods);
        return section;
    }

    private static Map<String, Object> hotSpots(List<HotSpot> spots, int limit, long total, boolean withCalls) {
        List<Object> methods = new ArrayList<>();
        for (HotSpot spot : spots) {
            if (methods.size() >= limit) {
                break;
            }
            Map<String, Object> m = new LinkedHashMap<>();
            m.put("method", spot.name());
            m.put("ownTimeNs", spot.ownNs());
            m.put("ownPercent", percent(spot.ownNs(), total));
            m.put("totalTimeNs", spot.totalNs());
            m.put("totalPercent", percent(spot.totalNs(), total));
            if (withCalls) {
                m.put("invocations", spot.invocations());
            }
            methods.add(m);
        }
        Map<String, Object> section = new LinkedHashMap<>();
        section.put("methodCount", spots.size());
        section.put("methods", methods);
        return section;
    }

    private static List<Object> threads(Profile profile, Limits limits, long total, boolean withCalls) {
        List<Object> threads = new ArrayList<>();
        for (ThreadProfile thread : profile.threads()) {
            Map<String, Object> t = new LinkedHashMap<>();
            t.put("name", thread.name());
            t.put("trn", thread.trn());
            if (thread.group() != null) {
                t.put("group", thread.group());
            }
            t.put("daemon", thread.daemon());
            t.put("timeNs", thread.root().totalNs());
            t.put("percent", percent(thread.root().totalNs(), total));
            if (withCalls) {
                t.put("invocations", sumTopLevelInvocations(thread.root()));
            }
            if (limits.threadHotSpots() > 0 && thread.root().totalNs() * 100 >= total) {
                // Percentages of the thread's own time: what this thread spent it on. Threads below 1% of
                // the whole would only add noise.
                t.put("hotSpots", hotSpots(Profile.hotSpots(thread), limits.threadHotSpots(),
                        thread.root().totalNs(), withCalls));
            }
            threads.add(t);
        }
        return threads;
    }

    private static Map<String, Object> callTree(Profile profile, Limits limits, long total, boolean withCalls) {
        Map<String, Object> tree = new LinkedHashMap<>();
        tree.put("topCallees", limits.top());
        tree.put("depth", limits.depth());
        List<Object> threads = new ArrayList<>();
        for (ThreadProfile thread : profile.threads()) {
            Map<String, Object> node = node(thread.root(), limits, total, withCalls, 0);
            node.put("thread", true);
            threads.add(node);
        }
        tree.put("threads", threads);
        return tree;
    }

    private static Map<String, Object> node(CallNode node, Limits limits, long total, boolean withCalls, int depth) {
        Map<String, Object> n = new LinkedHashMap<>();
        n.put("name", node.name());
        n.put("totalTimeNs", node.totalNs());
        n.put("ownTimeNs", node.ownNs());
        n.put("percent", percent(node.totalNs(), total));
        if (withCalls && node.method() != 0) {
            n.put("invocations", node.invocations());
        }
        List<CallNode> children = node.children();
        if (children.isEmpty()) {
            return n;
        }
        if (depth >= limits.depth()) {
            n.put("omittedCallees", omitted(children, 0));
            return n;
        }
        List<Object> shown = new ArrayList<>();
        int count = Math.min(limits.top(), children.size());
        // Callees below a thousandth of the whole are noise in a tree of thousands of paths; they stay
        // counted in the remainder. Children come sorted by time, so they are the tail.
        while (count > 0 && children.get(count - 1).totalNs() * 1000 < total) {
            count--;
        }
        for (int i = 0; i < count; i++) {
            shown.add(node(children.get(i), limits, total, withCalls, depth + 1));
        }
        n.put("callees", shown);
        if (count < children.size()) {
            n.put("omittedCallees", omitted(children, count));
        }
        return n;
    }

    private static Map<String, Object> omitted(List<CallNode> children, int from) {
        long time = 0;
        for (int i = from; i < children.size(); i++) {
            time += children.get(i).totalNs();
        }
        Map<String, Object> o = new LinkedHashMap<>();
        o.put("count", children.size() - from);
        o.put("totalTimeNs", time);
        return o;
    }

    private static long sumTopLevelInvocations(CallNode root) {
        long sum = 0;
        for (CallNode child : root.children()) {
            sum += child.invocations();
        }
        return sum;
    }

    static double percent(long part, long whole) {
        if (whole <= 0) {
            return 0;
        }
        return Math.round(part * 10000.0 / whole) / 100.0;
    }
}
