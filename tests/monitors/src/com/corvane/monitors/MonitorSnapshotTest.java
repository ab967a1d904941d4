package com.corvane.monitors;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.EventTables;
import com.corvane.profile.MonitorProfile;
import com.corvane.profile.MonitorProfile.Entry;
import com.corvane.profile.Places;
import com.corvane.profile.Profile;
import com.corvane.report.Report;
import com.corvane.snapshot.Rows.MonitorRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * A real JVM with the agent runs MonitorShapes (tests/monitors/java): known
 * blocks on contended monitors and known waits, read back through the
 * project's reader. Counts, threads, owners, classes and places are exact;
 * times hold within a tolerance that a loaded machine keeps: at least 80% of
 * the time the program holds a monitor or waits (the holder starts its time
 * only once the other thread is blocked), at most that plus five seconds.
 */
class MonitorSnapshotTest {
    // As in MonitorShapes.
    static final long ROUNDS = 4;
    static final long HOLD_MS = 200;
    static final long TIMED_WAIT_MS = 300;
    static final long NOTIFY_AFTER_MS = 250;
    static final long SLACK_MS = 5000;
    static final String PROGRAM = "MonitorShapes";

    @TempDir
    Path dir;

    static List<Entry> ofClass(List<Entry> entries, String simpleName) {
        return entries.stream().filter(e -> e.monitorClass().equals(PROGRAM + "$" + simpleName)).toList();
    }

    static void assertTime(long expectedMs, Entry entry) {
        long ms = entry.timeNs() / 1_000_000;
        assertTrue(ms * 10 >= expectedMs * 8 && ms <= expectedMs + SLACK_MS,
                entry + ": " + ms + " ms, expected about " + expectedMs);
    }

    static void assertBlocked(MonitorProfile profile, String monitor, String thread, String owner, String method,
            String marker, long count, boolean withStacks) throws Exception {
        List<Entry> rows = ofClass(profile.blocked(), monitor);
        assertEquals(1, rows.size(), monitor + ": " + profile.entries());
        Entry row = rows.get(0);
        assertEquals(thread, row.thread());
        assertEquals(owner, row.owner());
        assertEquals(count, row.count());
        assertEquals(withStacks ? PROGRAM + "." + method + "():" + Shapes.line(PROGRAM, marker) : "<no stack>",
                row.place());
        assertTime(count * HOLD_MS, row);
    }

    @Test
    void blocksAndWaitsAreCountedWithOwnersClassesAndPlaces() throws Exception {
        check(Shapes.run(dir, "monitors", PROGRAM).snapshot(), true);
    }

    @Test
    void withoutStacksEveryRowHasTheFrameOfNoStack() throws Exception {
        check(Shapes.run(dir, "monitors,_monitors_no_stack", PROGRAM).snapshot(), false);
    }

    @Test
    void startedClearedAndStoppedThroughTheNatives() throws Exception {
        Snapshotted outcome = Shapes.run(dir, "sampling", PROGRAM, "control");
        assertTrue(outcome.run().out().contains("start null\nagain Already started\n"), outcome.run().out());
        MonitorProfile profile = MonitorProfile.build(outcome.snapshot());
        assertEquals(List.of(), ofClass(profile.entries(), "Lock"), "cleared");
        assertEquals(List.of(), ofClass(profile.entries(), "Unseen"), "stopped");
        checkAfterTheLock(profile, true);
        assertTrue(outcome.run().log().contains("Monitor data cleared"), outcome.run().log());
        assertTrue(outcome.run().log().contains("Monitor profiling stopped"), outcome.run().log());
    }

    @Test
    void withTheEventProbeEachBlockAndWaitIsARowFromItsStartToItsEnd() throws Exception {
        Snapshot snapshot = Shapes.run(dir, "monitors,_monitors_probe_enable,_monitors_legacy_disable", PROGRAM)
                .snapshot();
        assertEquals(List.of(), MonitorProfile.build(snapshot).entries(), "no rows of the monitor table");
        EventTables tables = new EventTables(snapshot);
        Map<String, List<Map<String, Object>>> blocks = byThread(tables, "Thread block");
        Map<String, List<Map<String, Object>>> waits = byThread(tables, "Thread wait");
        // A wait's row stands at Object.wait itself, where the waiting thread is.
        Object[][] expected = {
            {blocks, "blocker", PROGRAM + ".blockOnce():" + Shapes.line(PROGRAM, "BLOCK-LOCK"), ROUNDS, HOLD_MS},
            {blocks, "nester", PROGRAM + ".nestOnce():" + Shapes.line(PROGRAM, "BLOCK-INNER"), 1L, HOLD_MS},
            {blocks, "late", PROGRAM + ".lateOnce():" + Shapes.line(PROGRAM, "BLOCK-ENDING"), 1L, HOLD_MS},
            {waits, "waiter", "java.lang.Object.wait(long)", 2L, Math.min(TIMED_WAIT_MS, NOTIFY_AFTER_MS)},
        };
        for (Object[] e : expected) {
            @SuppressWarnings("unchecked")
            List<Map<String, Object>> rows = ((Map<String, List<Map<String, Object>>>) e[0]).get((String) e[1]);
            assertNotNull(rows, e[1] + " has rows");
            List<Map<String, Object>> here = rows.stream().filter(r -> r.get("frame").equals(e[2])).toList();
            assertEquals((long) e[3], here.size(), e[2] + " in " + rows);
            for (Map<String, Object> row : here) {
                long ms = (Long) row.get("duration_ns") / 1_000_000;
                long least = (long) e[4];
                assertTrue(ms * 10 >= least * 8 && ms <= least + SLACK_MS, row + ": expected about " + least + " ms");
            }
        }
    }

    static Map<String, List<Map<String, Object>>> byThread(EventTables tables, String table) {
        assertNotNull(tables.table(table), table);
        Map<String, List<Map<String, Object>>> rows = new TreeMap<>();
        for (Map<String, Object> row : tables.rows(tables.table(table))) {
            rows.computeIfAbsent((String) row.get("thread"), t -> new ArrayList<>()).add(row);
        }
        return rows;
    }

    void check(Snapshot snapshot, boolean withStacks) throws Exception {
        MonitorProfile profile = MonitorProfile.build(snapshot);
        assertBlocked(profile, "Lock", "blocker", "holder", "blockOnce", "BLOCK-LOCK", ROUNDS, withStacks);
        checkAfterTheLock(profile, withStacks);

        // The report carries the same, as `corvane report --json` writes it.
        Shapes.Printed report = Shapes.report(snapshot);
        String json = report.json();
        assertTrue(json.contains("\"monitors\":{\"recordingTimeNs\":"), json);
        assertTrue(json.contains("\"thread\":\"blocker\",\"trn\":"), json);
        assertTrue(json.contains("\"owner\":\"holder\""), json);
        assertTrue(json.contains("\"monitorClass\":\"MonitorShapes$WaitLock\""), json);
        // And the text that `corvane report` prints.
        String printed = report.text();
        assertTrue(printed.contains("blocker <- holder: MonitorShapes$Lock at " + (withStacks
                ? PROGRAM + ".blockOnce():" + Shapes.line(PROGRAM, "BLOCK-LOCK") : "<no stack>") + "\n"), printed);
        assertTrue(printed.contains("waiter: MonitorShapes$WaitLock at "), printed);
    }

    void checkAfterTheLock(MonitorProfile profile, boolean withStacks) throws Exception {
        // Nested: the outer monitor was free when taken.
        assertBlocked(profile, "Inner", "nester", "inner-holder", "nestOnce", "BLOCK-INNER", 1, withStacks);
        assertEquals(List.of(), ofClass(profile.entries(), "Outer"));
        // The owner ended long before the capture and still has its name.
        assertBlocked(profile, "Ending", "late", "short-lived", "lateOnce", "BLOCK-ENDING", 1, withStacks);

        List<Entry> waits = ofClass(profile.waits(), "WaitLock");
        assertEquals(withStacks ? 2 : 1, waits.size(), profile.entries().toString());
        for (Entry wait : waits) {
            assertEquals("waiter", wait.thread());
            assertEquals("waiter", wait.owner());
        }
        if (withStacks) {
            Entry timed = waits.stream().filter(e -> e.path().contains(PROGRAM + ".timedWait()")).findFirst()
                    .orElseThrow();
            assertEquals(PROGRAM + ".timedWait():" + Shapes.line(PROGRAM, "WAIT-TIMED"), timed.place());
            assertEquals(1, timed.count());
            assertTime(TIMED_WAIT_MS, timed);
            Entry notified = waits.stream().filter(e -> e.path().contains(PROGRAM + ".notifiedWait()")).findFirst()
                    .orElseThrow();
            assertEquals(PROGRAM + ".notifiedWait():" + Shapes.line(PROGRAM, "WAIT-NOTIFIED"), notified.place());
            assertEquals(1, notified.count());
            assertTime(NOTIFY_AFTER_MS, notified);
        } else {
            assertEquals(2, waits.get(0).count());
            assertTime(TIMED_WAIT_MS + NOTIFY_AFTER_MS, waits.get(0));
        }
        assertNotNull(profile.durationNs(), "the recording time");
    }

    /** The JVM keeps a monitor entered through JNI owned after its owner ended: the block never ends. */
    @Test
    void aMonitorHeldAcrossItsOwnersEndLeavesTheOpenBlockUncounted() throws Exception {
        Snapshotted outcome = Shapes.run(dir, "monitors", "JniMonitorShapes", AgentJvm.jniLibrary());
        assertTrue(outcome.run().out().contains("still BLOCKED"), outcome.run().out());
        Snapshot snapshot = outcome.snapshot();
        Map<Integer, String> names = Places.threadNames(snapshot);
        List<MonitorRow> held = new ArrayList<>();
        for (Table.Entry<MonitorRow> entry : snapshot.tables().monitors.liveEntries()) {
            if ("JniMonitorShapes$Held".equals(snapshot.string(entry.row().monitorClass()))) {
                held.add(entry.row());
            }
        }
        assertEquals(1, held.size(), held.toString());
        assertEquals("jni-blocked", names.get(held.get(0).blockedTrn()));
        assertEquals("jni-holder", names.get(held.get(0).ownerTrn()));
        assertEquals(0, held.get(0).count());
        assertEquals(0, held.get(0).timeNs());
        assertEquals(List.of(), ofClass(MonitorProfile.build(snapshot).entries(), "Held"));
    }

    @Test
    void withoutTheOptionNothingIsRecorded() throws Exception {
        Snapshot snapshot = Shapes.run(dir, "sampling", PROGRAM).snapshot();
        assertEquals(0, snapshot.tables().monitors.liveCount());
        assertEquals(null, MonitorProfile.build(snapshot).durationNs());
        Map<String, Object> report = Report.build(snapshot, Profile.build(snapshot), new Report.Limits(5, 3, 5, 12));
        assertFalse(report.containsKey("monitors"));
    }
}
