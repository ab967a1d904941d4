package com.corvane.tracing;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.snapshot.Table;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.TreeSet;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/**
 * Real JVMs with the agent, rewritten classes and tracing: what the snapshot
 * holds, read with the project's snapshot reader, against programs of known
 * shape (tests/tracing/java).
 */
class TracingSnapshotTest {
    // As in TracedShapes.
    static final int[] LEAF_CALLS = {120_000, 80_000, 40_000};
    static final int RECURSION_DEPTH = 6;
    static final int RECURSIONS = 50;
    static final int THROWS = 40;
    static final int EARLY_LEAF_CALLS = 1000;
    static final int SHORT_THREADS = 20;
    static final long SLEEP_NS = 200_000_000L;
    static final long SPIN_NS = 150_000_000L;
    static final int DEAD_THREAD_LIMIT = 5;
    static final String CLASSES = System.getProperty("corvane.tracing.classes");

    static Map<String, Long> measured(String out) {
        Map<String, Long> result = new HashMap<>();
        for (String line : out.split("\n")) {
            if (line.startsWith("measured ")) {
                int last = line.lastIndexOf(' ');
                result.put(line.substring("measured ".length(), last), Long.parseLong(line.substring(last + 1).trim()));
            }
        }
        return result;
    }

    static List<String> tracingWarnings(String log) {
        List<String> found = new ArrayList<>();
        for (String line : log.split("\n")) {
            if (line.contains("warning: p_m_") || line.contains("tracing time jump") || line.contains("error:")) {
                found.add(line);
            }
        }
        return found;
    }

    // Without exception events the frames that an exception unwinds are told by a probe instead.
    @ParameterizedTest
    @ValueSource(strings = {"", ",exceptions=disable"})
    void aProgramOfKnownShapeIsRecordedExactly(String exceptions, @TempDir Path dir) throws Exception {
        Path settings = Files.writeString(dir.resolve("tracing.txt"), "walltime=*\nadaptive=false\n");
        Snapshotted jvm = AgentJvm.atExit(dir, "tracing,deadthreadlimit=" + DEAD_THREAD_LIMIT + ",tracing_settings_path="
                + settings + exceptions, CLASSES, "TracedShapes");
        assertTrue(jvm.run().out().contains("done "), jvm.run().out());
        assertEquals(List.of(), tracingWarnings(jvm.run().log()), "the player met no disorder");
        Map<String, Long> measured = measured(jvm.run().out());
        Snapshot snapshot = jvm.snapshot();

        for (int i = 0; i < LEAF_CALLS.length; i++) {
            String name = "worker-" + (i + 1);
            CallTree tree = CallTree.of(snapshot, name);
            // Shape: exactly these frames of the program's own methods, each once.
            Map<String, List<CallTree.Frame>> frames = tree.byFilteredPath(m -> m.startsWith("TracedShapes"));
            Map<String, Long> counts = new TreeMap<>();
            for (Map.Entry<String, List<CallTree.Frame>> entry : frames.entrySet()) {
                assertEquals(1, entry.getValue().size(), name + ": one frame for " + entry.getKey());
                counts.put(entry.getKey(), entry.getValue().get(0).invocations());
            }
            Map<String, Long> expected = new TreeMap<>();
            String root = "TracedShapes$Worker.run";
            expected.put(root, 1L);
            expected.put(root + "/TracedShapes.body", 1L);
            expected.put(root + "/TracedShapes.body/TracedShapes.leaf", (long) LEAF_CALLS[i]);
            String recursion = root;
            for (int depth = 0; depth < RECURSION_DEPTH; depth++) {
                recursion += "/TracedShapes.recurse";
                expected.put(recursion, (long) RECURSIONS);
            }
            String throwing = root + "/TracedShapes.catcher";
            expected.put(throwing, (long) THROWS);
            for (String thrower : List.of("thrower3", "thrower2", "thrower1")) {
                throwing += "/TracedShapes." + thrower;
                expected.put(throwing, (long) THROWS);
            }
            expected.put(root + "/TracedShapes.report", 1L);
            if (i == 0) {
                expected.put(root + "/TracedShapes.sleeper", 1L);
            }
            if (i == 1) {
                expected.put(root + "/TracedShapes.spinner", 1L);
            }
            assertEquals(expected, counts, name);

            // Times: the agent's view of a call lies inside the caller's own measurement of it.
            long body = frames.get(root + "/TracedShapes.body").get(0).timeNs();
            long leaves = frames.get(root + "/TracedShapes.body/TracedShapes.leaf").get(0).timeNs();
            assertTrue(leaves > 0 && leaves <= body, name + ": leaf " + leaves + " within body " + body);
            assertTrue(body <= measured.get("body " + name), name + ": body " + body + " <= " + measured);
            System.out.printf("%s: %d leaf calls, body %.1f ms traced, %.1f ms measured by the program%n", name,
                    LEAF_CALLS[i], body / 1e6, measured.get("body " + name) / 1e6);
        }
        long slept = CallTree.of(snapshot, "worker-1").framesOf("TracedShapes.sleeper").get(0).timeNs();
        assertTrue(slept >= SLEEP_NS && slept <= measured.get("sleeper"), "sleeper " + slept + " " + measured);
        long spun = CallTree.of(snapshot, "worker-2").framesOf("TracedShapes.spinner").get(0).timeNs();
        assertTrue(spun >= SPIN_NS && spun <= measured.get("spinner"), "spinner " + spun + " " + measured);
        System.out.printf("sleeper %.2f ms traced, %.2f ms measured; spinner %.2f ms traced, %.2f ms measured%n",
                slept / 1e6, measured.get("sleeper") / 1e6, spun / 1e6, measured.get("spinner") / 1e6);

        checkMerging(snapshot);
        // The heap is counted by class at the capture.
        assertTrue(snapshot.tables().instanceCounts.liveEntries().stream()
                .anyMatch(e -> "java.lang.String".equals(snapshot.string(e.row().className())) && e.row().count() > 0));
    }

    // Threads ended in this order: early, short-1 .. short-20, the workers. With the limit L, the first
    // thread end that lists more than L + 10 merges all but the last L into "<Oldest finished threads>".
    private static void checkMerging(Snapshot snapshot) {
        Map<String, ThreadRow> rows = new HashMap<>();
        for (Table.Entry<ThreadRow> entry : snapshot.tables().threads.liveEntries()) {
            rows.put(snapshot.string(entry.row().name()), entry.row());
        }
        Set<String> merged = new TreeSet<>();
        long mergedShortCalls = 0;
        for (int k = 1; k <= SHORT_THREADS; k++) {
            ThreadRow row = rows.get("short-" + k);
            assertNotNull(row, "short-" + k);
            assertTrue(row.endUptimeNs() > 0, "short-" + k + " ended");
            if (row.tfiIndex() == 0) {
                merged.add("short-" + k);
                mergedShortCalls += k;
            } else {
                assertEquals(k, CallTree.of(snapshot, row.tfiIndex()).invocationsOf("TracedShapes.shortTask"),
                        "short-" + k + " on its own");
            }
        }
        ThreadRow early = rows.get("early");
        assertTrue(early.endUptimeNs() > 0 && early.endUptimeNs() < rows.get("short-1").endUptimeNs());
        if (early.tfiIndex() == 0) {
            merged.add("early");
        }
        Set<String> expected = new TreeSet<>(List.of("early"));
        for (int k = 1; k <= 10; k++) {
            expected.add("short-" + k);
        }
        assertEquals(expected, merged, "merged when short-15 ended");

        CallTree oldest = CallTree.of(snapshot, "<Oldest finished threads>");
        Map<String, Long> counts = new TreeMap<>();
        oldest.byFilteredPath(m -> m.startsWith("TracedShapes")).forEach((path, frames) ->
                counts.put(path, frames.stream().mapToLong(CallTree.Frame::invocations).sum()));
        Map<String, Long> expectedCounts = new TreeMap<>();
        expectedCounts.put("TracedShapes$Early.run", 1L);
        expectedCounts.put("TracedShapes$Early.run/TracedShapes.body", 1L);
        expectedCounts.put("TracedShapes$Early.run/TracedShapes.body/TracedShapes.leaf", (long) EARLY_LEAF_CALLS);
        expectedCounts.put("TracedShapes$Short.run", 10L);
        expectedCounts.put("TracedShapes$Short.run/TracedShapes.shortTask", mergedShortCalls);
        expectedCounts.put("TracedShapes$Short.run/TracedShapes.shortTask/TracedShapes.leaf", mergedShortCalls);
        assertEquals(expectedCounts, counts, "the merged threads' calls, summed");
    }

    @Test
    void tracingStartsStopsAndClearsThroughTheNatives(@TempDir Path dir) throws Exception {
        Path snapshots = Files.createDirectories(dir.resolve("snapshots"));
        Path middle = snapshots.resolve("middle.snapshot");
        AgentJvm.Run run = AgentJvm.run(dir, "dir=" + snapshots, CLASSES, "TracingControl", middle.toString());
        assertEquals(0, run.exitCode(), run.out());
        List<String> answers = List.of("start null", "again Cannot start CPU tracing: CPU profiling (tracing) already started",
                "invalid Invalid mode: 8", "capture null", "restart null");
        for (String answer : answers) {
            assertTrue(run.out().contains(answer + "\n"), answer + " in\n" + run.out());
        }
        assertTrue(run.log().contains("CPU profiling data cleared"));
        assertTrue(run.log().contains("CPU profiling stopped"));

        // Taken while stopped: what was traced after the clear and before the stop.
        Snapshot middleSnapshot = SnapshotReader.read(middle);
        // The agent's telemetry thread stores samples of its own beside the program's.
        List<Table.Entry<com.corvane.snapshot.Rows.TelemetryRow>> samples =
                middleSnapshot.tables().telemetry.liveEntries().stream().filter(e -> e.row().values()[10] == 110)
                        .toList();
        assertEquals(1, samples.size(), "the telemetry sample stored through the native");
        CallTree atMiddle = CallTree.of(middleSnapshot, "main");
        assertEquals(0, atMiddle.invocationsOf("TracingControl.phaseA"));
        assertEquals(0, atMiddle.invocationsOf("TracingControl.phaseB"));
        assertEquals(300, atMiddle.invocationsOf("TracingControl.phaseC"));
        assertEquals(0, atMiddle.invocationsOf("TracingControl.phaseD"));

        // At exit, tracing runs again: a new start clears what was before.
        CallTree atExit = CallTree.of(SnapshotReader.read(AgentJvm.onlyFile(snapshots, "-shutdown.snapshot")), "main");
        assertEquals(0, atExit.invocationsOf("TracingControl.phaseC"));
        assertEquals(500, atExit.invocationsOf("TracingControl.phaseE"));
    }
}
