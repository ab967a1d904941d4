package com.corvane.report;

import java.io.PrintStream;
import java.time.Instant;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/** Lays a {@link Report} out as plain text for a terminal. */
public final class TextReport {
    private static final DateTimeFormatter DATE =
            DateTimeFormatter.ofPattern("yyyy-MM-dd HH:mm:ss").withZone(ZoneId.systemDefault());

    private final PrintStream myOut;
    private final boolean myBrief;

    private TextReport(PrintStream out, boolean brief) {
        myOut = out;
        myBrief = brief;
    }

    /** Brief: the hot spots alone, overall and per thread. */
    public static void print(Map<String, Object> report, boolean brief, PrintStream out) {
        new TextReport(out, brief).all(report);
        out.flush();
    }

    @SuppressWarnings("unchecked")
    private void all(Map<String, Object> report) {
        Map<String, Map<String, Object>> summary = (Map<String, Map<String, Object>>) report.get("summary");
        if (!myBrief) {
            summary(summary);
        }
        long total = (Long) report.get("totalTimeNs");
        if (total > 0) {
            cpu(report, summary, total);
        } else {
            myOut.println();
            myOut.println("No CPU time was recorded: CPU sampling or tracing was off while this snapshot's data was"
                    + " gathered, or no thread was selected.");
        }
        Map<String, Object> allocations = (Map<String, Object>) report.get("allocations");
        if (allocations != null) {
            recordedAllocations((Map<String, Object>) allocations.get("recorded"));
            countedAllocations((Map<String, Object>) allocations.get("counted"));
        }
        Map<String, Object> calls = (Map<String, Object>) report.get("callCounts");
        if (calls != null) {
            callCounts(calls);
        }
        Map<String, Object> monitors = (Map<String, Object>) report.get("monitors");
        if (monitors != null) {
            monitorRows((Map<String, Object>) monitors.get("blocked"), "Blocked on monitors",
                    "where threads waited for a monitor that another thread held", true);
            monitorRows((Map<String, Object>) monitors.get("waits"), "Waits", "time in Object.wait", false);
        }
        Map<String, Object> exceptions = (Map<String, Object>) report.get("exceptions");
        if (exceptions != null) {
            exceptions(exceptions);
        }
        Map<String, Object> statements = (Map<String, Object>) report.get("databaseStatements");
        if (statements != null) {
            groups((List<Object>) statements.get("slowest"), "Database statements, the most time first", "SQL");
            groups((List<Object>) statements.get("mostFrequent"), "Database statements, the most often run first", "SQL");
        }
        List<Object> requests = (List<Object>) report.get("webRequests");
        if (requests != null) {
            groups(requests, "Web requests by URI, the most time first", "URI");
        }
        Map<String, Object> io = (Map<String, Object>) report.get("io");
        if (io != null) {
            streams((List<Object>) io.get("files"), "I/O by file, the most bytes first", "file");
            streams((List<Object>) io.get("sockets"), "I/O by address, the most bytes first", "address");
        }
        List<Object> eventTables = (List<Object>) report.get("eventTables");
        if (eventTables != null) {
            eventTables(eventTables);
        }
        Map<String, Object> heap = (Map<String, Object>) report.get("heap");
        if (heap != null) {
            heap(heap);
        }
    }

    @SuppressWarnings("unchecked")
    private void groups(List<Object> groups, String title, String what) {
        myOut.println();
        myOut.println(title + ":");
        myOut.printf(Locale.ROOT, "  %8s %12s %12s %7s  %s%n", "count", "time ms", "longest ms", "failed", what);
        for (Object item : groups) {
            Map<String, Object> g = (Map<String, Object>) item;
            myOut.printf(Locale.ROOT, "  %,8d %12s %12s %,7d  %s%n", (Long) g.get("count"), millis((Long) g.get("timeNs")),
                    millis((Long) g.get("maxNs")), (Long) g.get("errors"), g.get("key"));
        }
    }

    @SuppressWarnings("unchecked")
    private void streams(List<Object> groups, String title, String what) {
        if (groups == null) {
            return;
        }
        myOut.println();
        myOut.println(title + ":");
        myOut.printf(Locale.ROOT, "  %8s %14s %14s %12s %7s  %s%n", "opened", "read bytes", "written bytes", "I/O ms",
                "failed", what);
        for (Object item : groups) {
            Map<String, Object> g = (Map<String, Object>) item;
            myOut.printf(Locale.ROOT, "  %,8d %,14d %,14d %12s %,7d  %s%n", (Long) g.get("count"),
                    (Long) g.getOrDefault("readBytes", 0L), (Long) g.getOrDefault("writtenBytes", 0L),
                    millis((Long) g.get("timeNs")), (Long) g.get("errors"), g.get("key"));
        }
    }

    @SuppressWarnings("unchecked")
    private void eventTables(List<Object> tables) {
        myOut.println();
        myOut.println("Event tables (corvane events <snapshot> --table <name> for the rows):");
        for (Object item : tables) {
            Map<String, Object> t = (Map<String, Object>) item;
            myOut.printf(Locale.ROOT, "  %s: %,d rows%n", t.get("name"), (Integer) t.get("rows"));
            List<Object> slowest = (List<Object>) t.get("slowest");
            for (Object row : slowest == null ? List.of() : slowest) {
                myOut.println("    " + EventRowText.format((Map<String, Object>) row));
            }
        }
    }

    @SuppressWarnings("unchecked")
    private void monitorRows(Map<String, Object> kind, String title, String what, boolean withOwner) {
        List<Object> rows = (List<Object>) kind.get("rows");
        myOut.println();
        myOut.printf(Locale.ROOT, "%s: %s; %,d times, %s ms in all%n", title, what, (Long) kind.get("count"),
                millis((Long) kind.get("timeNs")));
        if (rows.isEmpty()) {
            return;
        }
        myOut.printf(Locale.ROOT, "  %12s %7s %10s  %s%n", "time ms", "%", "count",
                withOwner ? "thread <- owner: monitor class at place" : "thread: monitor class at place");
        for (Object item : rows) {
            Map<String, Object> r = (Map<String, Object>) item;
            myOut.printf(Locale.ROOT, "  %12s %6.2f%% %,10d  %s%s: %s at %s%n", millis((Long) r.get("timeNs")),
                    r.get("percent"), (Long) r.get("count"), r.get("thread"),
                    withOwner ? " <- " + r.get("owner") : "", r.get("monitorClass"), r.get("place"));
        }
    }

    @SuppressWarnings("unchecked")
    private void exceptions(Map<String, Object> section) {
        List<Object> rows = (List<Object>) section.get("rows");
        myOut.println();
        myOut.printf(Locale.ROOT, "Exceptions: %,d thrown, of %d classes%n", (Long) section.get("count"),
                (Integer) section.get("classCount"));
        myOut.printf(Locale.ROOT, "  %12s %7s  %s%n", "count", "%", "class");
        for (Object item : (List<Object>) section.get("classes")) {
            Map<String, Object> c = (Map<String, Object>) item;
            myOut.printf(Locale.ROOT, "  %,12d %6.2f%%  %s%n", (Long) c.get("count"), c.get("percent"), c.get("name"));
        }
        myOut.println("  by place:");
        for (Object item : rows) {
            Map<String, Object> r = (Map<String, Object>) item;
            Object caught = r.get("caughtAt");
            myOut.printf(Locale.ROOT, "  %,12d %6.2f%%  %s in %s: thrown at %s, %s%n", (Long) r.get("count"),
                    r.get("percent"), r.get("exceptionClass"), r.get("thread"), r.get("thrownAt"),
                    caught == null ? "uncaught" : "caught at " + caught);
        }
    }

    @SuppressWarnings("unchecked")
    private void heap(Map<String, Object> heap) {
        List<Object> classes = (List<Object>) heap.get("classes");
        myOut.println();
        myOut.printf(Locale.ROOT, "Heap: %,d objects, %,d bytes (shallow), %,d classes, %,d GC roots%n",
                (Long) heap.get("objects"), (Long) heap.get("shallowSize"), (Long) heap.get("classCount"),
                (Long) heap.get("gcRoots"));
        myOut.println();
        myOut.printf(Locale.ROOT, "Class histogram: %d of %,d classes, by shallow size%n", classes.size(),
                (Long) heap.get("classCount"));
        myOut.printf(Locale.ROOT, "  %14s %16s  %s%n", "instances", "shallow bytes", "class");
        for (Object row : classes) {
            Map<String, Object> entry = (Map<String, Object>) row;
            myOut.printf(Locale.ROOT, "  %,14d %,16d  %s%n", (Long) entry.get("instances"),
                    (Long) entry.get("shallowSize"), entry.get("class"));
        }
    }

    @SuppressWarnings("unchecked")
    private void cpu(Map<String, Object> report, Map<String, Map<String, Object>> summary, long total) {
        Object clock = summary.get("modes").get("clock");
        List<Object> threads = (List<Object>) report.get("threads");
        myOut.println();
        hotSpots((Map<String, Object>) report.get("hotSpots"), "Hot spots", "100% = " + millis(total)
                + " ms of recorded " + clock + " in " + threads.size() + " thread" + (threads.size() == 1 ? "" : "s"));
        threadHotSpots(threads);
        if (!myBrief) {
            threads(threads, total);
            callTree((Map<String, Object>) report.get("callTree"));
        }
    }

    @SuppressWarnings("unchecked")
    private void recordedAllocations(Map<String, Object> recorded) {
        if (recorded == null) {
            return;
        }
        long objects = (Long) recorded.get("objects");
        long bytes = (Long) recorded.get("bytes");
        String scale = "100% = " + String.format(Locale.ROOT, "%,d objects, %,d bytes", objects, bytes)
                + " recorded";
        myOut.println();
        myOut.printf(Locale.ROOT, "Allocations recorded: %,d objects, %,d bytes; collected ones lived %,d ms in all%n",
                objects, bytes, (Long) recorded.get("summedAgeOfCollectedMs"));
        amounts((List<Object>) recorded.get("classesBySize"), "Allocation hot spots by size, per class",
                recorded.get("classCount"), "class", scale);
        amounts((List<Object>) recorded.get("classesByCount"), "Allocation hot spots by count, per class",
                recorded.get("classCount"), "class", scale);
        amounts((List<Object>) recorded.get("sitesBySize"), "Allocation hot spots by size, per site",
                recorded.get("siteCount"), "site", scale);
        amounts((List<Object>) recorded.get("sitesByCount"), "Allocation hot spots by count, per site",
                recorded.get("siteCount"), "site", scale);
        List<Object> threads = (List<Object>) recorded.get("threads");
        myOut.println();
        myOut.println("Allocations per thread");
        myOut.printf(Locale.ROOT, "  %14s %16s %7s %12s  %s%n", "objects", "bytes", "bytes %", "dead age ms", "thread");
        for (Object item : threads) {
            Map<String, Object> t = (Map<String, Object>) item;
            myOut.printf(Locale.ROOT, "  %,14d %,16d %6.2f%% %,12d  %s%s%n", (Long) t.get("objects"),
                    (Long) t.get("bytes"), t.get("bytesPercent"), (Long) t.get("summedAgeOfCollectedMs"), t.get("name"),
                    Boolean.TRUE.equals(t.get("daemon")) ? " (daemon)" : "");
        }
        if (!myBrief) {
            for (Object item : threads) {
                Map<String, Object> t = (Map<String, Object>) item;
                List<Object> classes = (List<Object>) t.get("classesBySize");
                if (classes.isEmpty() || (Long) t.get("objects") == 0) {
                    continue;
                }
                amounts(classes, "Allocations of thread \"" + t.get("name") + "\" by size", null, "class",
                        String.format(Locale.ROOT, "100%% = %,d objects, %,d bytes of this thread",
                                (Long) t.get("objects"), (Long) t.get("bytes")));
            }
        }
    }

    @SuppressWarnings("unchecked")
    private void countedAllocations(Map<String, Object> counted) {
        if (counted == null) {
            return;
        }
        String scale = String.format(Locale.ROOT, "100%% = %,d objects counted", (Long) counted.get("objects"));
        myOut.println();
        myOut.printf(Locale.ROOT, "Allocations counted: %,d objects%n", (Long) counted.get("objects"));
        amounts((List<Object>) counted.get("classes"), "Counted objects per class", counted.get("classCount"), "class",
                scale);
        amounts((List<Object>) counted.get("sites"), "Counted objects per allocation point", counted.get("siteCount"),
                "site", scale);
    }

    @SuppressWarnings("unchecked")
    private void amounts(List<Object> rows, String title, Object of, String what, String scale) {
        myOut.println();
        myOut.println(title + ": " + (of != null ? rows.size() + " of " + of : rows.size()) + "; " + scale);
        boolean withBytes = !rows.isEmpty() && ((Map<String, Object>) rows.get(0)).containsKey("bytes");
        if (withBytes) {
            myOut.printf(Locale.ROOT, "  %14s %7s %16s %7s  %s%n", "objects", "%", "bytes", "%", what);
        } else {
            myOut.printf(Locale.ROOT, "  %14s %7s  %s%n", "objects", "%", what);
        }
        for (Object item : rows) {
            Map<String, Object> a = (Map<String, Object>) item;
            if (withBytes) {
                myOut.printf(Locale.ROOT, "  %,14d %6.2f%% %,16d %6.2f%%  %s%n", (Long) a.get("objects"),
                        a.get("objectsPercent"), (Long) a.get("bytes"), a.get("bytesPercent"), a.get("name"));
            } else {
                myOut.printf(Locale.ROOT, "  %,14d %6.2f%%  %s%n", (Long) a.get("objects"), a.get("objectsPercent"),
                        a.get("name"));
            }
        }
    }

    @SuppressWarnings("unchecked")
    private void callCounts(Map<String, Object> calls) {
        List<Object> methods = (List<Object>) calls.get("methods");
        myOut.println();
        myOut.printf(Locale.ROOT, "Call counts: %d of %d methods; 100%% = %,d calls counted%n", methods.size(),
                (Integer) calls.get("methodCount"), (Long) calls.get("totalCalls"));
        myOut.printf(Locale.ROOT, "  %16s %7s  %s%n", "calls", "%", "method");
        for (Object item : methods) {
            Map<String, Object> m = (Map<String, Object>) item;
            myOut.printf(Locale.ROOT, "  %,16d %6.2f%%  %s%n", (Long) m.get("calls"), m.get("percent"), m.get("method"));
        }
    }

    private void summary(Map<String, Map<String, Object>> sections) {
        for (Map.Entry<String, Map<String, Object>> section : sections.entrySet()) {
            if (section.getValue().isEmpty()) {
                continue;
            }
            myOut.println(title(section.getKey()) + ":");
            for (Map.Entry<String, Object> entry : section.getValue().entrySet()) {
                myOut.printf(Locale.ROOT, "  %-34s %s%n", words(entry.getKey()), value(entry.getKey(), entry.getValue()));
            }
        }
    }

    @SuppressWarnings("unchecked")
    private void threadHotSpots(List<Object> threads) {
        for (Object item : threads) {
            Map<String, Object> t = (Map<String, Object>) item;
            Map<String, Object> section = (Map<String, Object>) t.get("hotSpots");
            if (section == null || ((List<Object>) section.get("methods")).isEmpty()) {
                continue;
            }
            myOut.println();
            hotSpots(section, "Hot spots of thread \"" + t.get("name") + "\"" + (Boolean.TRUE.equals(t.get("daemon"))
                    ? " (daemon)" : ""), "100% = " + millis((Long) t.get("timeNs")) + " ms of this thread");
        }
    }

    @SuppressWarnings("unchecked")
    private void hotSpots(Map<String, Object> section, String title, String scale) {
        List<Object> methods = (List<Object>) section.get("methods");
        myOut.println(title + ": " + methods.size() + " of " + section.get("methodCount")
                + " methods by own time; " + scale);
        boolean withCalls = !methods.isEmpty() && ((Map<String, Object>) methods.get(0)).containsKey("invocations");
        myOut.printf(Locale.ROOT, "  %12s %7s %12s %7s%s  %s%n", "own ms", "own %", "total ms", "total %",
                withCalls ? String.format(Locale.ROOT, " %12s", "calls") : "", "method");
        for (Object item : methods) {
            Map<String, Object> m = (Map<String, Object>) item;
            myOut.printf(Locale.ROOT, "  %12s %6.2f%% %12s %6.2f%%%s  %s%n", millis((Long) m.get("ownTimeNs")), m.get("ownPercent"),
                    millis((Long) m.get("totalTimeNs")), m.get("totalPercent"),
                    withCalls ? String.format(Locale.ROOT, " %,12d", (Long) m.get("invocations")) : "", m.get("method"));
        }
    }

    @SuppressWarnings("unchecked")
    private void threads(List<Object> threads, long total) {
        myOut.println();
        myOut.println("Threads: time per thread");
        myOut.printf(Locale.ROOT, "  %12s %7s  %s%n", "time ms", "%", "thread");
        for (Object item : threads) {
            Map<String, Object> t = (Map<String, Object>) item;
            myOut.printf(Locale.ROOT, "  %12s %6.2f%%  %s%s%n", millis((Long) t.get("timeNs")), t.get("percent"), t.get("name"),
                    Boolean.TRUE.equals(t.get("daemon")) ? " (daemon)" : "");
        }
    }

    @SuppressWarnings("unchecked")
    private void callTree(Map<String, Object> tree) {
        myOut.println();
        myOut.println("Call tree: per thread, the " + tree.get("topCallees") + " most expensive callees of each call,"
                + " " + tree.get("depth") + " levels deep");
        myOut.printf(Locale.ROOT, "  %7s %12s %12s  %s%n", "%", "total ms", "own ms", "call path");
        for (Object thread : (List<Object>) tree.get("threads")) {
            node((Map<String, Object>) thread, 0);
        }
    }

    @SuppressWarnings("unchecked")
    private void node(Map<String, Object> n, int depth) {
        String indent = "  ".repeat(depth);
        String calls = n.containsKey("invocations") ? String.format(Locale.ROOT, "  (%,d calls)", (Long) n.get("invocations")) : "";
        String name = Boolean.TRUE.equals(n.get("thread")) ? "[thread] " + n.get("name") : (String) n.get("name");
        myOut.printf(Locale.ROOT, "  %6.2f%% %12s %12s  %s%s%s%n", n.get("percent"), millis((Long) n.get("totalTimeNs")),
                millis((Long) n.get("ownTimeNs")), indent, name, calls);
        Object callees = n.get("callees");
        if (callees != null) {
            for (Object child : (List<Object>) callees) {
                node((Map<String, Object>) child, depth + 1);
            }
        }
        Map<String, Object> omitted = (Map<String, Object>) n.get("omittedCallees");
        if (omitted != null) {
            myOut.printf(Locale.ROOT, "  %7s %12s %12s  %s... %d more callee%s%n", "", millis((Long) omitted.get("totalTimeNs")),
                    "", "  ".repeat(depth + 1), (Integer) omitted.get("count"),
                    (Integer) omitted.get("count") == 1 ? "" : "s");
        }
    }

    private static String title(String key) {
        return key.equals("jvm") ? "JVM" : Character.toUpperCase(key.charAt(0)) + key.substring(1);
    }

    /** "cpuProfilingStartNs" to "cpu profiling start". */
    static String words(String key) {
        String base = key.endsWith("EpochMs") ? key.substring(0, key.length() - 7)
                : key.endsWith("Ns") ? key.substring(0, key.length() - 2) : key;
        StringBuilder words = new StringBuilder();
        for (char c : base.toCharArray()) {
            if (Character.isUpperCase(c)) {
                words.append(' ').append(Character.toLowerCase(c));
            } else {
                words.append(c);
            }
        }
        return words.toString().replace("jvm", "JVM").replace("cpu", "CPU");
    }

    private static String value(String key, Object value) {
        if (value instanceof Long && key.endsWith("EpochMs")) {
            return DATE.format(Instant.ofEpochMilli((Long) value));
        }
        if (value instanceof Long && key.endsWith("Ns")) {
            return seconds((Long) value);
        }
        if (value instanceof Boolean) {
            return (Boolean) value ? "yes" : "no";
        }
        if (value instanceof List) {
            List<?> list = (List<?>) value;
            return list.isEmpty() ? "none" : String.join(", ", list.stream().map(String::valueOf).toList());
        }
        if (key.equals("sizeBytes") && value instanceof Long) {
            return String.format(Locale.ROOT, "%,d bytes", (Long) value);
        }
        return String.valueOf(value);
    }

    private static String seconds(long ns) {
        return String.format(Locale.ROOT, "%.3f s", ns / 1e9);
    }

    static String millis(long ns) {
        return String.format(Locale.ROOT, "%,.1f", ns / 1e6);
    }
}
