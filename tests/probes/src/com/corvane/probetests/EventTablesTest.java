package com.corvane.probetests;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.EventTables;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import com.corvane.testing.ToolRun;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeSet;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Event tables and object maps used through the natives by EventTablesApp; the tables read back from its snapshot. */
class EventTablesTest {
    static Snapshotted run(Path dir, String options) throws Exception {
        // Without the built-in probes, whose tables (Class Loading, Threads...) would come first.
        Snapshotted jvm = AgentJvm.atExit(dir, "quiet,probe_disable=com.corvane.probes.builtin.*" + options,
                System.getProperty("corvane.probes.classes"), "EventTablesApp");
        assertEquals("same table again: true\nrefused: -3 -4 -5 -6 -7 -8\ntables: Requests,Slow,Messages\n"
                + "maps: 0 0 7 8 0 7 9 9 11 0 true false\ncollected while mapped: true\n", jvm.run().out());
        return jvm;
    }

    @Test
    @SuppressWarnings("unchecked")
    void rowsFromThreeThreadsComeBackWithTheirDependentRowsDurationsAndErrors(@TempDir Path dir) throws Exception {
        Snapshotted jvm = run(dir, "");
        Path snapshot = jvm.file();
        EventTables tables = new EventTables(jvm.snapshot());
        List<Map<String, Object>> requests = tables.rows(tables.table("Requests"));
        assertEquals(12, requests.size());
        TreeSet<String> uris = new TreeSet<>();
        int failed = 0;
        for (Map<String, Object> request : requests) {
            String uri = (String) request.get("URI");
            uris.add(uri);
            String thread = "t" + request.get("thread").toString().substring("worker-".length());
            assertTrue(uri.startsWith("/" + thread + "/"), request.toString());
            boolean fails = uri.endsWith("/r3");
            assertEquals(fails ? "java.io.IOException: boom" : null, request.get("exception_str"), request.toString());
            failed += fails ? 1 : 0;
            List<Map<String, Object>> queries = (List<Map<String, Object>>) ((Map<String, Object>) request.get("dependent"))
                    .get("Queries");
            List<String> sql = new ArrayList<>();
            for (Map<String, Object> query : queries) {
                assertEquals(request.get("eventId"), query.get("master"));
                // A query closes before its request.
                assertTrue((Long) query.get("duration_ns") <= (Long) request.get("duration_ns"), request.toString());
                sql.add((String) query.get("SQL"));
            }
            assertEquals(List.of("select 0 from " + thread, "select 1 from " + thread), sql);
        }
        assertEquals(12, uris.size());
        assertEquals(3, failed);
        // The row of 0 ms fell below the minimum of 50 ms.
        List<Map<String, Object>> slow = tables.rows(tables.table("Slow"));
        assertEquals(1, slow.size(), slow.toString());
        assertEquals("slept 120", slow.get(0).get("Name"));
        assertTrue((Long) slow.get(0).get("duration_ns") >= 120_000_000L, slow.toString());
        Map<String, Object> message = tables.rows(tables.table("Messages")).get(0);
        assertEquals(List.of("main", "Test", "h\u00e9llo \u2014 \u65e5\u672c", "from the program ".repeat(12)),
                List.of(message.get("thread"), message.get("Category"), message.get("Text"), message.get("Detail")));

        ToolRun list = ToolRun.of("events", snapshot.toString());
        assertEquals(0, list.code(), list.err());
        assertEquals("        12  Requests\n        24  Queries  (rows of Requests)\n         1  Slow\n         1  Messages\n",
                list.out());
        ToolRun rows = ToolRun.of("events", snapshot.toString(), "--table", "Slow");
        assertTrue(rows.out().matches("#[0-9]+  1[2-9][0-9]\\.[0-9]{3} ms  Name=slept 120\n"), rows.out());
        ToolRun report = ToolRun.of("report", snapshot.toString());
        assertTrue(report.out().contains("\n  Requests: 12 rows\n    #") && report.out().contains("\n  Slow: 1 rows\n    #"),
                report.out());
        ToolRun missing = ToolRun.of("events", snapshot.toString(), "--table", "Nothing");
        assertEquals(2, missing.code());
        assertTrue(missing.err().contains("no event table \"Nothing\" in " + snapshot), missing.err());
    }

    @Test
    void theClassLoadingProbeRecordsAClassLoadedAndUnloaded(@TempDir Path dir) throws Exception {
        Snapshotted jvm = AgentJvm.atExit(dir, "quiet", System.getProperty("corvane.probes.classes"), "ClassLoadingApp");
        assertEquals("own loader: true\nunloaded: true\n", jvm.run().out(), jvm.run().log());
        Path snapshot = jvm.file();
        assertTrue(ToolRun.of("events", snapshot.toString()).out().matches("(?s)(.*\n)? *[0-9]+  Class Loading\n.*"));
        List<String> rows = ToolRun.of("events", snapshot.toString(), "--table", "Class Loading").out().lines()
                .filter(line -> line.contains("  Class=ClassLoadingApp$Passing  ")).toList();
        // Loaded on the main thread where the program asked for it; unloaded by the collector, on no thread.
        assertEquals(2, rows.size(), rows.toString());
        assertTrue(rows.get(0).matches("#[0-9]+  thread=main  frame=java\\.lang\\.Class\\.forName.*  Loaded or Unloaded=loaded"),
                rows.get(0));
        assertTrue(rows.get(1).matches("#[0-9]+  thread=<unknown>  frame=<no stack>  .*  Loaded or Unloaded=unloaded"),
                rows.get(1));
    }

    @Test
    void aMasterTableAndItsDependentsKeepNoMoreRowsThanTheLimit(@TempDir Path dir) throws Exception {
        EventTables tables = new EventTables(run(dir, ",probetablelengthlimit=10").snapshot());
        int requests = tables.rows(tables.table("Requests")).size();
        int queries = tables.rows(tables.table("Queries")).size();
        assertEquals(10, requests + queries, requests + " requests, " + queries + " queries");
        assertEquals(1, tables.rows(tables.table("Slow")).size());
    }
}
