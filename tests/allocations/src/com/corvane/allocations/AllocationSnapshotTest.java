package com.corvane.allocations;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.allocations.Allocations.Counted;
import com.corvane.allocations.Allocations.Recorded;
import com.corvane.flame.FlameGraph;
import com.corvane.profile.Profile;
import com.corvane.report.Json;
import com.corvane.report.Report;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.snapshot.Table;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import com.corvane.testing.ToolRun;
import java.io.StringWriter;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/**
 * Real JVMs with the agent record the allocations of programs of known shape
 * (tests/allocations/java), on both roads into recording: the JVM's heap
 * sampling, which this JDK offers, and the instrumented allocation sites with
 * the JNI redirect ("disable_heap_sampling"). The snapshots are read with the
 * project's reader.
 */
class AllocationSnapshotTest {
    // As in AllocShapes.
    static final long[] SMALLS = {1000, 2000, 3000};
    static final long MEDIUMS = 500;
    static final long LARGES = 20;
    static final long LARGE_SIZE = 8192;
    static final long ARRAY_ROUNDS = 50;
    static final long NATIVE_ROUNDS = 100;
    static final long KEEPERS = 300;
    static final long TEMPS = 400;
    static final long LIFE_MS = 200;
    static final long LEAF_CALLS = 1000;
    static final int WORKERS = 3;

    static final String SMALL = "AllocShapes$Small";
    static final String MEDIUM = "AllocShapes$Medium";
    static final String NATIVE_MADE = "AllocShapes$NativeMade";
    static final String SMALLS_SITE = "AllocShapes.smalls(int)";
    static final String MEDIUMS_SITE = "AllocShapes.mediums(int, int)";
    static final String LARGES_SITE = "AllocShapes.larges(int)";
    static final String ARRAYS_SITE = "AllocShapes.arrays(int)";
    static final String NATIVE_SITE = "AllocShapes.makeNative(int, java.lang.Class, java.lang.Object[])";
    static final String KEEP_SITE = "AllocShapes.keep()";
    static final String TEMPS_SITE = "AllocShapes.temps()";
    // Sizes with compressed references: 12 bytes of object header, 16 of array header, 8-byte alignment.
    static final long SMALL_SIZE = 16;
    static final long MEDIUM_SIZE = 32;
    static final long LARGE_ARRAY_SIZE = 16 + LARGE_SIZE;

    /** Options that take the instrumented sites and the JNI redirect instead of heap sampling. */
    static final String BYTECODE = ",disable_heap_sampling";

    @TempDir
    Path dir;

    Snapshotted runShapes(String options) throws Exception {
        return AgentJvm.capturing(dir, options, System.getProperty("corvane.allocations.classes"), "AllocShapes",
                AgentJvm.jniLibrary());
    }

    static boolean bytecode(String options) {
        return options.contains(BYTECODE);
    }

    /** What arrays() makes per worker: each array kind once a round; sub-arrays only where the JVM reports them. */
    static Map<String, Long> arraysOfOneWorker(boolean bytecode, long rounds) {
        Map<String, Long> expected = new TreeMap<>();
        for (String kind : List.of("boolean[]", "byte[]", "char[]", "short[]", "float[]", "double[]",
                "java.lang.String[]", "int[][]", "AllocShapes$Small[][][]", "long[][][]")) {
            expected.put(kind, rounds);
        }
        // A multi-dimensional creation is one instruction: instrumented sites see its outer array only.
        expected.put("int[]", rounds * (bytecode ? 1 : 3));
        expected.put("long[]", rounds * (bytecode ? 1 : 5));
        if (!bytecode) {
            expected.put("AllocShapes$Small[][]", rounds * 2);
            expected.put("long[][]", rounds * 2);
        }
        return expected;
    }

    static Map<String, Long> nativeOfOneWorker(Map<String, Long> recorded) {
        Map<String, Long> known = new TreeMap<>();
        for (String kind : List.of(NATIVE_MADE, "int[]", "java.lang.String", NATIVE_MADE + "[]")) {
            known.put(kind, recorded.getOrDefault(kind, 0L));
        }
        return known;
    }

    static Map<String, Long> of(String kind, long count) {
        return new TreeMap<>(Map.of(kind, count));
    }

    static long bytesOf(List<Recorded> rows, String thread, String method, String className) {
        long bytes = 0;
        for (Recorded row : rows) {
            if (row.thread().equals(thread) && row.method().equals(method) && row.className().equals(className)) {
                bytes += row.bytes();
            }
        }
        return bytes;
    }

    @ParameterizedTest
    @ValueSource(strings = {"alloceach=1", "alloceach=1" + BYTECODE})
    void eachObjectIsRecordedWithItsThreadSiteClassAndSize(String options) throws Exception {
        Snapshotted outcome = runShapes(options);
        boolean bytecode = bytecode(options);
        assertTrue(outcome.run().log().contains("Allocation recording started (exact stacks) recordEach=1 sizeLimit=4096"));
        List<Recorded> rows = Allocations.recorded(outcome.snapshot());
        for (int i = 0; i < WORKERS; i++) {
            String thread = "alloc-" + (i + 1);
            assertEquals(of(SMALL, SMALLS[i]), Allocations.recordedByClass(rows, thread, SMALLS_SITE), thread);
            assertEquals(SMALLS[i] * SMALL_SIZE, bytesOf(rows, thread, SMALLS_SITE, SMALL), thread);
            assertEquals(of(MEDIUM, MEDIUMS), Allocations.recordedByClass(rows, thread, MEDIUMS_SITE), thread);
            assertEquals(MEDIUMS * MEDIUM_SIZE, bytesOf(rows, thread, MEDIUMS_SITE, MEDIUM), thread);
            assertEquals(of("byte[]", LARGES), Allocations.recordedByClass(rows, thread, LARGES_SITE), thread);
            assertEquals(LARGES * LARGE_ARRAY_SIZE, bytesOf(rows, thread, LARGES_SITE, "byte[]"), thread);
            assertEquals(arraysOfOneWorker(bytecode, ARRAY_ROUNDS),
                    Allocations.recordedByClass(rows, thread, ARRAYS_SITE), thread);
            assertEquals(Map.of(NATIVE_MADE, NATIVE_ROUNDS, "int[]", NATIVE_ROUNDS, "java.lang.String", NATIVE_ROUNDS,
                    NATIVE_MADE + "[]", NATIVE_ROUNDS),
                    nativeOfOneWorker(Allocations.recordedByClass(rows, thread, NATIVE_SITE)), thread);
        }
        checkPlaces(rows);
        checkAges(rows);
    }

    // Each site is a line of its own under its caller, and the stack goes down to the thread's body.
    private static void checkPlaces(List<Recorded> rows) {
        for (Recorded row : rows) {
            if (!"alloc-1".equals(row.thread()) || !row.method().startsWith("AllocShapes.")) {
                continue;
            }
            assertTrue(row.path().contains("AllocShapes.work(int)"), row.toString());
            if (!row.method().equals(NATIVE_SITE)) {
                assertTrue(row.line() > 0, "a line for " + row);
            }
        }
        List<Integer> arrayLines = new ArrayList<>();
        for (Recorded row : rows) {
            if ("alloc-1".equals(row.thread()) && row.method().equals(ARRAYS_SITE) && !arrayLines.contains(row.line())) {
                arrayLines.add(row.line());
            }
        }
        assertEquals(12, arrayLines.size(), "one line for each of the twelve array creations: " + arrayLines);
    }

    // Objects of the ended thread died after it: their ages go to the oldest finished threads at their
    // place; the thread's own row keeps the count. The main thread's objects died while it ran.
    private static void checkAges(List<Recorded> rows) {
        assertEquals(Map.of("AllocShapes$Keeper", KEEPERS, "java.lang.Object[]", 1L),
                Allocations.recordedByClass(rows, "ender", KEEP_SITE));
        long enderAge = 0;
        long mainAge = 0;
        for (Recorded row : rows) {
            if (row.className().equals("AllocShapes$Keeper") && row.method().equals(KEEP_SITE)) {
                if (row.thread().equals("<Oldest finished threads>")) {
                    enderAge += row.summedAgeMs();
                } else {
                    assertEquals(0, row.summedAgeMs(), "no age while its thread ran: " + row);
                }
            }
            if (row.className().equals("AllocShapes$Temp") && row.method().equals(TEMPS_SITE)) {
                assertEquals("main", row.thread());
                assertEquals(TEMPS, row.objects());
                mainAge += row.summedAgeMs();
            }
        }
        assertTrue(enderAge >= KEEPERS * LIFE_MS, "ages of the ender's objects: " + enderAge);
        assertTrue(mainAge >= TEMPS * LIFE_MS, "ages of main's objects: " + mainAge);
    }

    @ParameterizedTest
    @ValueSource(strings = {"alloceach=10,allocsizelimit=4096", "alloceach=10,allocsizelimit=4096" + BYTECODE})
    void oneSmallObjectInTenAndEveryLargeOne(String options) throws Exception {
        Snapshotted outcome = runShapes(options);
        List<Recorded> rows = Allocations.recorded(outcome.snapshot());
        for (int i = 0; i < WORKERS; i++) {
            String thread = "alloc-" + (i + 1);
            assertEquals(of(SMALL, SMALLS[i] / 10), Allocations.recordedByClass(rows, thread, SMALLS_SITE), thread);
            assertEquals(of(MEDIUM, MEDIUMS / 10), Allocations.recordedByClass(rows, thread, MEDIUMS_SITE), thread);
            assertEquals(of("byte[]", LARGES), Allocations.recordedByClass(rows, thread, LARGES_SITE), thread);
            long arrays = 0;
            for (long count : arraysOfOneWorker(bytecode(options), ARRAY_ROUNDS).values()) {
                arrays += count;
            }
            long recordedArrays = 0;
            for (long count : Allocations.recordedByClass(rows, thread, ARRAYS_SITE).values()) {
                recordedArrays += count;
            }
            assertEquals(arrays / 10, recordedArrays, thread);
        }
    }

    @ParameterizedTest
    @ValueSource(strings = {"alloc_object_counting", "alloc_object_counting" + BYTECODE})
    void objectCountingCountsEachAllocationPoint(String options) throws Exception {
        Snapshotted outcome = runShapes(options);
        boolean bytecode = bytecode(options);
        assertTrue(outcome.run().log().contains("Allocation recording started (object counting)"));
        assertEquals(List.of(), Allocations.recorded(outcome.snapshot()), "no stacks while counting");
        List<Counted> rows = Allocations.counted(outcome.snapshot());
        long smalls = SMALLS[0] + SMALLS[1] + SMALLS[2];
        assertEquals(of(SMALL, smalls), Allocations.countedByClass(rows, SMALLS_SITE));
        assertEquals(of(MEDIUM, MEDIUMS * WORKERS), Allocations.countedByClass(rows, MEDIUMS_SITE));
        assertEquals(of("byte[]", LARGES * WORKERS), Allocations.countedByClass(rows, LARGES_SITE));
        // The workers' rounds and the one of main, which loads the classes; counting knows no threads.
        assertEquals(arraysOfOneWorker(bytecode, ARRAY_ROUNDS * WORKERS + 1),
                Allocations.countedByClass(rows, ARRAYS_SITE));
        if (bytecode) {
            // The instrumented sites count by line; JNI objects pass no site.
            List<Integer> lines = new ArrayList<>();
            for (Counted row : rows) {
                if (row.method().equals(ARRAYS_SITE)) {
                    lines.add(row.line());
                }
            }
            assertEquals(12, lines.stream().distinct().count(), "a count per line: " + lines);
            assertEquals(Map.of(), Allocations.countedByClass(rows, NATIVE_SITE));
        } else {
            // With main's round, which also links the native method and so makes a string of its own.
            long rounds = NATIVE_ROUNDS * WORKERS + 1;
            Map<String, Long> made = nativeOfOneWorker(Allocations.countedByClass(rows, NATIVE_SITE));
            assertTrue(made.remove("java.lang.String") >= rounds, made.toString());
            assertEquals(Map.of(NATIVE_MADE, rounds, "int[]", rounds, NATIVE_MADE + "[]", rounds), made);
        }
    }

    @Test
    void sampledStacksCountEachObjectUnderTheSamplersStack() throws Exception {
        Snapshotted outcome = runShapes("allocsampled,alloceach=1");
        assertTrue(outcome.run().log().contains("Allocation recording started (sampled stacks)"));
        assertTrue(outcome.run().log().contains("starting sampling: synchronous"));
        List<Recorded> rows = Allocations.recorded(outcome.snapshot());
        for (int i = 0; i < WORKERS; i++) {
            String thread = "alloc-" + (i + 1);
            long small = 0;
            long medium = 0;
            for (Recorded row : rows) {
                if (thread.equals(row.thread()) && row.className().equals(SMALL)) {
                    small += row.objects();
                }
                if (thread.equals(row.thread()) && row.className().equals(MEDIUM)) {
                    medium += row.objects();
                }
            }
            assertEquals(SMALLS[i], small, thread);
            assertEquals(MEDIUMS, medium, thread);
        }
        for (Recorded row : rows) {
            // Below the sampler's last stack of the thread, or below the place of stacks not known.
            assertTrue(!row.path().isEmpty(), row.toString());
        }
    }

    /** Calls per method of the program, from call counting or from tracing's invocation counts. */
    static Map<String, Long> programCalls(Snapshot snapshot, boolean counting) {
        Map<String, Long> calls = new TreeMap<>();
        if (counting) {
            for (Table.Entry<Long> entry : snapshot.tables().callCounts.liveEntries()) {
                String method = snapshot.methodName(entry.index());
                if (method.startsWith("AllocShapes") && entry.row() > 0) {
                    calls.merge(method, entry.row(), Long::sum);
                }
            }
            return calls;
        }
        for (Table.Entry<com.corvane.snapshot.Rows.ThreadFrameRow> link : snapshot.tables().threadFrames.liveEntries()) {
            var cpu = snapshot.tables().cpuProfiling.get(link.index());
            if (cpu == null || cpu.invocations() == 0) {
                continue;
            }
            var frame = snapshot.tables().frames.get(link.row().frame());
            String method = snapshot.methodName(snapshot.methodOfCodePoint(frame.codePoint()));
            if (method.startsWith("AllocShapes")) {
                calls.merge(method, cpu.invocations(), Long::sum);
            }
        }
        return calls;
    }

    @Test
    void callCountsEqualTheInvocationCountsOfTracing() throws Exception {
        Snapshotted counted = runShapes("call_counting");
        assertTrue(counted.run().log().contains("Call counting started"), counted.run().log());
        Map<String, Long> counts = programCalls(counted.snapshot(), true);
        assertEquals(WORKERS * (LEAF_CALLS + 4), counts.get("AllocShapes.leaf(int)"));
        assertEquals(WORKERS * 4L, counts.get("AllocShapes.branch(int)"));
        assertEquals((long) WORKERS, counts.get("AllocShapes.smalls(int)"));

        Path settings = Files.writeString(dir.resolve("tracing.txt"), "walltime=*\nadaptive=false\n");
        Snapshotted traced = runShapes("tracing,tracing_settings_path=" + settings);
        assertEquals(programCalls(traced.snapshot(), false), counts);
    }

    @Test
    void recordingStartsStopsClearsAndRestartsThroughTheNatives() throws Exception {
        Path first = dir.resolve("first.snapshot");
        Path second = dir.resolve("second.snapshot");
        AgentJvm.Run run = AgentJvm.run(dir, "dir=" + Files.createDirectories(dir.resolve("exit")),
                System.getProperty("corvane.allocations.classes"), "AllocControl", first.toString(), second.toString());
        assertEquals(0, run.exitCode(), run.out());
        for (String answer : List.of("start null", "again Cannot start allocation recording: already started (exact stacks)",
                "badmode Bad mode: 5", "negative Incorrect value passed for 'recordEach': -1", "each 1", "restart null",
                "counting null", "countingAgain Cannot start allocation recording: already started (object counting)",
                "capture null", "capture2 null")) {
            assertTrue(run.out().contains(answer + "\n"), answer + " in\n" + run.out());
        }
        assertTrue(run.log().contains("Allocation data cleared"), run.log());
        // A stop while recording is off does nothing.
        assertEquals(2, run.log().split("Allocation recording stopped \\(exact stacks\\)", -1).length - 1, run.log());
        assertTrue(run.log().contains("Allocation recording stopped (object counting)"), run.log());

        List<Recorded> rows = Allocations.recorded(SnapshotReader.read(first));
        Map<String, Long> phases = new TreeMap<>();
        for (Recorded row : rows) {
            if (row.className().startsWith("AllocControl$Phase") && row.objects() > 0) {
                phases.merge(row.className().substring("AllocControl$".length()), row.objects(), Long::sum);
            }
        }
        // A: before the start; B: cleared; D: stopped.
        assertEquals(Map.of("PhaseC", 300L, "PhaseE", 500L), phases);

        Snapshot counting = SnapshotReader.read(second);
        assertEquals(600L, Allocations.countedByClass(Allocations.counted(counting), "AllocControl.phase(char, int)")
                .get("AllocControl$PhaseF"));
    }

    @Test
    void runWithAllocationsRecordsFromTheStartAndLeavesAReadableSnapshot() throws Exception {
        Path exit = Files.createDirectories(dir.resolve("run"));
        Path logs = Files.createDirectories(dir.resolve("logs"));
        ToolRun run = ToolRun.of("run", "--allocations=each-1", "--dir", exit.toString(), "--agent-options",
                "logdir=" + logs, "--", System.getProperty("corvane.java"), "-cp",
                System.getProperty("corvane.allocations.classes"), "AllocShapes", dir.resolve("own.snapshot").toString(),
                "-");
        run.ok();
        Path snapshot = AgentJvm.onlyFile(exit, "-shutdown.snapshot");
        assertTrue(run.err().contains("snapshot written: " + snapshot), run.err());
        List<Recorded> rows = Allocations.recorded(SnapshotReader.read(snapshot));
        assertEquals(of(SMALL, SMALLS[2]), Allocations.recordedByClass(rows, "alloc-3", SMALLS_SITE));
    }

    @Test
    void theReportAndTheFlameGraphShowTheRecordedAllocations() throws Exception {
        Snapshot snapshot = runShapes("alloceach=1").snapshot();
        Map<String, Object> report = Report.build(snapshot, Profile.build(snapshot), new Report.Limits(5, 3, 5, 12));
        String json = Json.toString(report, false);
        // The workers' and the one that main made while loading the class.
        long smalls = SMALLS[0] + SMALLS[1] + SMALLS[2] + 1;
        assertTrue(json.contains("{\"name\":\"" + SMALL + "\",\"objects\":" + smalls), json);
        assertTrue(json.contains("\"sitesBySize\""), json);
        assertTrue(json.contains("{\"name\":\"alloc-3\""), json);

        StringWriter folded = new StringWriter();
        FlameGraph.writeCollapsed(Profile.buildAllocations(snapshot), true, folded);
        long smallBytes = 0;
        for (String line : folded.toString().split("\n")) {
            if (line.startsWith("alloc-3;") && line.contains(";AllocShapes.smalls(int);" + SMALL + " ")) {
                smallBytes += Long.parseLong(line.substring(line.lastIndexOf(' ') + 1));
            }
        }
        assertEquals(SMALLS[2] * SMALL_SIZE, smallBytes, folded.toString());
    }
}
