package com.corvane.sampling;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Rows;
import com.corvane.snapshot.Rows.CpuRow;
import com.corvane.snapshot.Rows.FrameRow;
import com.corvane.snapshot.Rows.MethodRow;
import com.corvane.snapshot.Rows.ThreadFrameRow;
import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.snapshot.Table;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * Real JVMs with the agent sampling SampledWork (tests/sampling/java): two
 * CPU-bound threads in a 3:1 ratio of work and one sleeping thread. Times
 * are read from the exit snapshot with the project's snapshot reader.
 */
class SamplingSnapshotTest {
    // As in SampledWork.
    static final double HEAVY_SHARE = 3.0;
    // Wide enough for a loaded 2-core machine: the per-thread CPU clock is
    // exact, only the first and last period of each thread are lost.
    static final double RATIO_LOW = 2.25;
    static final double RATIO_HIGH = 4.0;
    static final long ROUNDS = 50;
    static final long SLEEP_MS = 1500;

    /** Time charged to each method (summed over its frames) on each thread. */
    record Times(Map<String, Map<String, Long>> byThread, String log) {
        long of(String thread, String method) {
            Map<String, Long> methods = byThread.get(thread);
            assertNotNull(methods, "thread " + thread + " in " + byThread.keySet());
            return methods.getOrDefault(method, 0L);
        }
    }

    record Run(String out, Times times, Snapshot snapshot) {
    }

    /** SampledWork sampled with the settings text (none: the defaults); it must log no problem and keep the ratio. */
    static Times sample(Path dir, String settingsText) throws Exception {
        String options = "sampling";
        if (settingsText != null) {
            options += ",sampling_settings_path=" + Files.writeString(dir.resolve("sampling.txt"), settingsText);
        }
        Times times = run(dir, options, "SampledWork", "" + ROUNDS, "" + SLEEP_MS).times();
        assertNoErrors(times);
        assertWorkRatio(times);
        return times;
    }

    static Run run(Path dir, String options, String... program) throws Exception {
        Snapshotted jvm = AgentJvm.atExit(dir, options, System.getProperty("corvane.sampling.classes"), program);
        assertTrue(jvm.run().out().contains("done "), jvm.run().out());
        return new Run(jvm.run().out(), new Times(timesByThread(jvm.snapshot()), jvm.run().log()), jvm.snapshot());
    }

    static Map<String, Map<String, Long>> timesByThread(Snapshot snapshot) {
        Map<Integer, String> threadOfTfi = new HashMap<>();
        for (Table.Entry<ThreadRow> entry : snapshot.tables().threads.liveEntries()) {
            threadOfTfi.put(entry.row().tfiIndex(), snapshot.string(entry.row().name()));
        }
        Map<String, Map<String, Long>> result = new HashMap<>();
        for (Table.Entry<ThreadFrameRow> link : snapshot.tables().threadFrames.liveEntries()) {
            String thread = threadOfTfi.get(link.row().tfiIndex());
            CpuRow cpu = snapshot.tables().cpuProfiling.get(link.index());
            if (thread == null || cpu == null) {
                continue;
            }
            FrameRow frame = snapshot.tables().frames.get(link.row().frame());
            String method = methodName(snapshot, snapshot.methodOfCodePoint(frame.codePoint()));
            result.computeIfAbsent(thread, t -> new HashMap<>()).merge(method, cpu.timeNs(), Long::sum);
        }
        return result;
    }

    static String methodName(Snapshot snapshot, int method) {
        MethodRow row = snapshot.tables().methods.get(method);
        return row == null ? "?" : snapshot.string(row.className()) + "." + snapshot.string(row.name());
    }

    static void assertWorkRatio(Times times) {
        long heavy = times.of("heavy-worker", "SampledWork.heavy");
        long light = times.of("light-worker", "SampledWork.light");
        assertTrue(light > 100_000_000L, "light work is measured: " + light);
        double ratio = (double) heavy / light;
        System.out.printf("heavy %d ns, light %d ns, ratio %.3f (expected %.1f)%n", heavy, light, ratio, HEAVY_SHARE);
        assertTrue(ratio > RATIO_LOW && ratio < RATIO_HIGH, "heavy:light = " + ratio);
    }

    static void assertNoErrors(Times times) {
        assertEquals(List.of(), AgentJvm.problems(times.log()));
    }

    @Test
    void withoutWallTimeMethodsOnlyCpuIsCharged(@TempDir Path dir) throws Exception {
        Times times = sample(dir, "sampling_period_ms=10\n");
        assertTrue(times.log().contains("SamplingSettings: sampling_period_ms = 10\n"), times.log());
        long sleeper = times.of("sleeper", "SampledWork.sleeper");
        long light = times.of("light-worker", "SampledWork.light");
        assertTrue(sleeper < light / 10, "sleeping costs no CPU: " + sleeper + " vs " + light);
    }

    @Test
    void defaultSettingsChargeTheWallTimeOfSleep(@TempDir Path dir) throws Exception {
        Times times = sample(dir, null);
        assertTrue(times.log().contains("SamplingSettings: sampling_period_ms = 20 (default)"), times.log());
        // Thread.sleep counts wall time, and so do its callers.
        long sleep = times.of("sleeper", "java.lang.Thread.sleep");
        long sleeper = times.of("sleeper", "SampledWork.sleeper");
        assertTrue(sleep > SLEEP_MS * 600_000L && sleep <= sleeper, sleep + " of " + sleeper);
        assertTrue(sleeper < SLEEP_MS * 2_000_000L, "no more than the wall time: " + sleeper);
    }

    @Test
    void aWallTimeMethodChargesItsCallersButNotItsCallees(@TempDir Path dir) throws Exception {
        Times times = sample(dir, "walltime=SampledWork : sleeper(*)\n");
        long sleeper = times.of("sleeper", "SampledWork.sleeper");
        long caller = times.of("sleeper", "java.lang.Thread.run");
        long sleep = times.of("sleeper", "java.lang.Thread.sleep");
        assertTrue(sleeper > SLEEP_MS * 600_000L && sleeper <= caller, sleeper + " of " + caller);
        assertTrue(sleep < sleeper / 10, "the callee counts CPU only: " + sleep + " of " + sleeper);
    }

    @Test
    void samplingSwitchesThroughTheNativesWithOneSamplerThread(@TempDir Path dir) throws Exception {
        Path stopped = dir.resolve("stopped.snapshot");
        Run run = run(dir, "", "SamplingControl", stopped.toString());
        assertNoErrors(run.times());
        String out = run.out();
        assertTrue(out.contains("threads 0\nstart null\n"), out);
        assertTrue(out.contains("again Cannot start CPU sampling: CPU profiling (sampling) already started\n"), out);
        assertTrue(out.contains("async Cannot start CPU sampling: linux-x86-64 does not support asynchronous sampling\n"),
                out);
        assertTrue(out.contains("restart null\nthreads 1\n"), out);

        Times beforeRestart = new Times(timesByThread(SnapshotReader.read(stopped)), "");
        long sampled = beforeRestart.of("main", "SamplingControl.phaseSampled");
        assertTrue(sampled > 100_000_000L, "sampled: " + sampled);
        assertEquals(0, beforeRestart.of("main", "SamplingControl.phaseStopped"), "nothing is sampled while stopped");
        assertEquals(0, run.times().of("main", "SamplingControl.phaseSampled"), "a start clears the data");
        long restarted = run.times().of("main", "SamplingControl.phaseRestarted");
        assertTrue(restarted > 100_000_000L, "sampled again: " + restarted);

        // The telemetry row carries the state of every sampled thread. The program stores zeros; the agent's
        // own samples have a heap.
        Rows.TelemetryRow row = run.snapshot().tables().telemetry.liveEntries().stream()
                .filter(e -> e.row().values()[0] == 0 && e.row().values()[1] == 0).findFirst().orElseThrow().row();
        assertNotNull(row.threadStates(), "thread states");
        int mainTrn = -1;
        for (Table.Entry<ThreadRow> entry : run.snapshot().tables().threads.liveEntries()) {
            if ("main".equals(run.snapshot().string(entry.row().name()))) {
                mainTrn = entry.row().trn();
            }
        }
        int trn = mainTrn;
        Rows.ThreadState main = row.threadStates().stream().filter(s -> s.trn() == trn).findFirst().orElseThrow();
        assertTrue(main.frame() > 0 && main.cpuTimeNs() > 3 * 100_000_000L, main.toString());
    }
}
