package com.corvane.report;

import static com.corvane.testing.JsonParser.list;
import static com.corvane.testing.JsonParser.map;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.Profile;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.testing.JsonParser;
import com.corvane.testing.ProfileBuilder;
import com.corvane.testing.Samples;
import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class ReportTest {
    @TempDir
    Path dir;

    private Map<String, Object> report(ProfileBuilder builder, Report.Limits limits) throws Exception {
        Snapshot snapshot = SnapshotReader.read(builder.write(dir.resolve("r.snapshot")));
        return Report.build(snapshot, Profile.build(snapshot), limits);
    }

    /** The report as JSON text, read back: what a consumer of --json sees. */
    private static Map<String, Object> asJson(Map<String, Object> report) {
        return map(JsonParser.parse(Json.toString(report, true)));
    }

    /** The text report, as the tool prints it without colours. */
    private String text(ProfileBuilder builder) throws Exception {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        TextReport.print(report(builder, new Report.Limits(20, 3, 5, 12)), false,
                new PrintStream(bytes, true, StandardCharsets.UTF_8));
        return bytes.toString(StandardCharsets.UTF_8);
    }

    @Test
    void jsonShapeOfASampledSnapshot() throws Exception {
        Map<String, Object> json = asJson(report(Samples.sampled(), new Report.Limits(20, 3, 5, 12)));
        assertEquals(List.of("summary", "totalTimeNs", "hotSpots", "threads", "callTree"), List.copyOf(json.keySet()));
        Map<String, Object> summary = map(json.get("summary"));
        assertEquals(List.of("snapshot", "session", "jvm", "modes", "times", "counts"), List.copyOf(summary.keySet()));
        assertEquals("TestApp", map(summary.get("session")).get("name"));
        assertEquals("linux-x86-64", map(summary.get("session")).get("platform"));
        assertEquals("performance", map(summary.get("snapshot")).get("kind"));
        assertEquals("at JVM start", map(summary.get("snapshot")).get("agentLoaded"));
        assertEquals("sampling", map(summary.get("modes")).get("cpu"));
        assertEquals(false, map(summary.get("modes")).get("invocationCounts"));
        assertEquals(8_000_000_000L, map(summary.get("times")).get("cpuProfilingDurationNs"));
        assertEquals(1_400_000_000L, json.get("totalTimeNs"));

        Map<String, Object> hot = map(list(map(json.get("hotSpots")).get("methods")).get(0));
        assertEquals(Samples.HOT_METHOD, hot.get("method"));
        assertEquals(1_000_000_000L, hot.get("ownTimeNs"));
        assertEquals(71.43, hot.get("ownPercent"));
        assertFalse(hot.containsKey("invocations"), "sampling counts no calls");
        assertEquals(4L, map(json.get("hotSpots")).get("methodCount"));

        List<Object> threads = list(json.get("threads"));
        assertEquals("main", map(threads.get(0)).get("name"));
        assertEquals(true, map(threads.get(1)).get("daemon"));

        Map<String, Object> mainThread = map(list(map(json.get("callTree")).get("threads")).get(0));
        assertEquals(true, mainThread.get("thread"));
        Map<String, Object> main = map(list(mainThread.get("callees")).get(0));
        assertEquals("com.example.Main.main(java.lang.String[])", main.get("name"));
        assertEquals(200_000_000L, main.get("ownTimeNs"));
        assertEquals(Samples.HOT_METHOD, map(list(main.get("callees")).get(0)).get("name"));
    }

    @Test
    void treeLimitsLeaveCountedRemainders() throws Exception {
        Map<String, Object> json = asJson(report(Samples.sampled(), new Report.Limits(1, 1, 1, 1)));
        assertEquals(1, list(map(json.get("hotSpots")).get("methods")).size());
        Map<String, Object> mainThread = map(list(map(json.get("callTree")).get("threads")).get(0));
        Map<String, Object> main = map(list(mainThread.get("callees")).get(0));
        assertNull(main.get("callees"), "depth 1 shows only the thread's first level");
        Map<String, Object> omitted = map(main.get("omittedCallees"));
        assertEquals(2L, omitted.get("count"));
        assertEquals(800_000_000L, omitted.get("totalTimeNs"));

        json = asJson(report(Samples.sampled(), new Report.Limits(5, 1, 1, 5)));
        main = map(list(map(list(map(json.get("callTree")).get("threads")).get(0)).get("callees")).get(0));
        assertEquals(1, list(main.get("callees")).size());
        assertEquals(1L, map(main.get("omittedCallees")).get("count"));
        assertEquals(100_000_000L, map(main.get("omittedCallees")).get("totalTimeNs"));
    }

    @Test
    void tracingCarriesInvocations() throws Exception {
        ProfileBuilder b = new ProfileBuilder().cpuMode(ProfileBuilder.TRACING);
        int run = b.method("T", "run", "()");
        int step = b.method("T", "step", "(long)");
        int t = b.thread("main", 1, false);
        int f = b.call(t, 0, run, 0, 50_000_000L, 1);
        b.call(t, f, step, 3, 40_000_000L, 1000);
        Map<String, Object> json = asJson(report(b, new Report.Limits(5, 5, 5, 5)));
        assertEquals("tracing", map(map(json.get("summary")).get("modes")).get("cpu"));
        Map<String, Object> hot = map(list(map(json.get("hotSpots")).get("methods")).get(0));
        assertEquals("T.step(long)", hot.get("method"));
        assertEquals(1000L, hot.get("invocations"));
        assertEquals(1L, map(list(json.get("threads")).get(0)).get("invocations"));
    }

    @Test
    void calleesBelowAThousandthAreCountedNotShown() throws Exception {
        ProfileBuilder b = new ProfileBuilder().cpuMode(ProfileBuilder.TRACING);
        int run = b.method("T", "run", "()");
        int big = b.method("T", "big", "()");
        int tiny = b.method("T", "tiny", "()");
        int t = b.thread("main", 1, false);
        int f = b.call(t, 0, run, 0, 1_000_000_000L, 1);
        b.call(t, f, big, 3, 900_000_000L, 1);
        b.call(t, f, tiny, 4, 999_999L, 1);
        Map<String, Object> json = asJson(report(b, new Report.Limits(5, 5, 5, 5)));
        Map<String, Object> runNode = map(list(map(list(map(json.get("callTree")).get("threads")).get(0))
                .get("callees")).get(0));
        assertEquals(1, list(runNode.get("callees")).size());
        assertEquals("T.big()", map(list(runNode.get("callees")).get(0)).get("name"));
        assertEquals(1L, map(runNode.get("omittedCallees")).get("count"));
        assertEquals(999_999L, map(runNode.get("omittedCallees")).get("totalTimeNs"));
    }

    @Test
    void textReportShowsTheSameFacts() throws Exception {
        String text = text(Samples.sampled());
        assertTrue(text.contains("  name                               TestApp"), text);
        assertTrue(text.contains("  CPU                                sampling"), text);
        assertTrue(text.contains("       1,000.0  71.43%      1,000.0  71.43%  " + Samples.HOT_METHOD), text);
        assertTrue(text.contains("[thread] main"), text);
        assertTrue(text.contains("  CPU profiling duration             8.000 s"), text);
    }

    @Test
    void aSnapshotWithoutCpuDataSaysSo() throws Exception {
        assertTrue(text(new ProfileBuilder()).contains("No CPU time was recorded"));
    }

    @Test
    void jsonEscapesAndHtmlSafety() {
        String text = Json.toString(Map.of("k", "a\"b\\c\nd\u0001<init>"), false);
        assertEquals("{\"k\":\"a\\\"b\\\\c\\nd\\u0001<init>\"}", text);
        StringBuilder html = new StringBuilder();
        Json.write(List.of("</script>"), html, false, true);
        assertFalse(html.toString().contains("</script>"));
        assertEquals(List.of("</script>"), JsonParser.parse(html.toString()));
    }
}
