package com.corvane.snapshot;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Rows.AllocInfoRow;
import com.corvane.snapshot.Rows.CpuRow;
import com.corvane.snapshot.Rows.EventRow;
import com.corvane.snapshot.Rows.ExceptionRow;
import com.corvane.snapshot.Rows.GenerationRow;
import com.corvane.snapshot.Rows.InstanceCountRow;
import com.corvane.snapshot.Rows.MethodRow;
import com.corvane.snapshot.Rows.MonitorRow;
import com.corvane.snapshot.Rows.TelemetryRow;
import com.corvane.snapshot.Rows.ThreadFrameRow;
import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.snapshot.Rows.ThreadState;
import com.corvane.testing.SnapshotFixture;
import java.nio.file.Path;
import java.util.List;
import java.util.function.Predicate;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * The agent's database and snapshot writer fill every table with known
 * values (tests/snapshot/SnapshotFixture.cpp, "golden"); the reader must read
 * back each column of each table.
 */
class GoldenSnapshotTest {
    @TempDir
    Path dir;

    private static <R> int only(Table<R> table, Predicate<R> which) {
        List<Integer> found = table.liveEntries().stream().filter(e -> which.test(e.row())).map(Table.Entry::index)
                .toList();
        assertEquals(1, found.size(), table.name() + ": " + found);
        return found.get(0);
    }

    @Test
    void everyTableAsTheAgentWroteIt() throws Exception {
        SnapshotFixture fixture = new SnapshotFixture();
        fixture.command("golden");
        Snapshot s = SnapshotReader.read(fixture.write(dir.resolve("golden.snapshot")));
        Tables t = s.tables();

        assertEquals(4, s.revision());
        assertEquals(List.of("header", "snapshot_version", "created_by_version", "agent_version", "platform",
                "session_id", "session_name", "snapshot_flags", "creation_time_ms", "sizeof_pointer", "oid_count"),
                List.copyOf(s.header().keySet()));
        assertEquals("90", s.header("snapshot_version"));
        assertEquals("Corvane Java Profiler 2019.8-b109", s.header("agent_version"));
        assertEquals("linux-x86-64", s.header("platform"));
        assertEquals("TestApp", s.header("session_name"));
        assertEquals(Integer.toString(0x200 | 0x8000), s.header("snapshot_flags"));
        assertEquals(Long.toString(s.creationTimeMs()), s.header("creation_time_ms"));
        assertEquals("8", s.header("sizeof_pointer"));
        assertEquals("0".repeat(32), s.header("oid_count"));
        assertFalse(s.isMemorySnapshot());

        int run = only(t.methods, m -> "run".equals(s.string(m.name())));
        MethodRow method = t.methods.get(run);
        assertEquals(List.of("p.C", "(int)", "long", "C.java"), List.of(s.string(method.className()),
                s.string(method.parameters()), s.string(method.returnType()), s.string(method.sourceFile())));
        assertEquals(0x800, method.flags(), "native");

        int worker = only(t.threads, r -> "golden worker".equals(s.string(r.name())));
        ThreadRow thread = t.threads.get(worker);
        assertEquals(new ThreadRow(thread.name(), thread.group(), worker, 7, 0x1122334455667788L, 1, 5_000_000L, 100L),
                thread);
        assertEquals("main", s.string(thread.group()));

        // Frames: a packed code point, and one through the code_point table for a line above 2047.
        int frame = only(t.frames, f -> f.parent() == 0 && s.methodOfCodePoint(f.codePoint()) == run);
        assertEquals(12, s.lineOfCodePoint(t.frames.get(frame).codePoint()));
        int deep = only(t.frames, f -> f.parent() == frame);
        assertEquals(run, s.methodOfCodePoint(t.frames.get(deep).codePoint()));
        assertEquals(5000, s.lineOfCodePoint(t.frames.get(deep).codePoint()));
        assertEquals(deep, t.frames.get(frame).firstChild());
        assertEquals(-1, t.frames.get(deep).nextSibling());

        int cpu = only(t.threadFrames, r -> r.equals(new ThreadFrameRow(worker, frame)));
        assertEquals(new CpuRow(123_456_789_012L, 42L), t.cpuProfiling.get(cpu));
        int allocated = only(t.threadFrames, r -> r.equals(new ThreadFrameRow(worker, deep)));
        assertEquals(new AllocInfoRow(10L, 640L, 33L), t.allocInfo.get(allocated));

        MonitorRow monitor = t.monitors.get(1);
        assertEquals(new MonitorRow(7, frame, 8, monitor.monitorClass(), 1L << 40, 36L), monitor);
        assertEquals("java.lang.Object", s.string(monitor.monitorClass()));
        assertFalse(t.monitors.isLive(2));
        assertTrue(t.monitors.entry(2).stamp() < 0, "a deleted row carries its generation, negative");
        InstanceCountRow counted = t.instanceCounts.get(1);
        assertEquals(List.of("p.Counted", 17, 4096L), List.of(s.string(counted.className()), counted.count(),
                counted.size()));
        assertTrue(t.tableGenerations.isLive(Tables.INSTANCE_COUNT));
        GenerationRow generation = t.generations.get(1);
        assertEquals("golden generation", s.string(generation.description()));
        assertEquals(5000L, generation.uptimeMs());
        ExceptionRow exception = t.exceptions.get(2);
        assertEquals(new ExceptionRow(7, frame, 0, exception.exceptionClass(), 105L), exception);
        assertEquals("p.Failure", s.string(exception.exceptionClass()));

        assertEquals(run, s.methodOfCodePoint(t.allocPoints.get(1).codePoint()));
        assertEquals(3, s.lineOfCodePoint(t.allocPoints.get(1).codePoint()));
        assertEquals("p.Made", s.string(t.allocPoints.get(1).className()));
        assertEquals(7L, t.allocObjectCounts.get(1), "counters carry current minus base");
        assertEquals(42L, t.callCounts.get(run));
        only(t.snapshots, r -> "golden.snapshot".equals(s.string(r.fileName())) && r.time() == 1_234_567_890_123L);
        assertEquals(-2, s.property("golden.property"));
        assertEquals(0x12_3456_789AL, s.longProperty("golden.long"));
        assertEquals(12L, s.longProperty("kzt.last.cpu.profiling.mode"));

        assertEquals(1, s.eventTables().size());
        EventTableDescription golden = s.eventTables().values().iterator().next();
        assertEquals("Golden", golden.name());
        assertEquals(3, golden.valueCount(), "a long takes two values");
        EventRow event = t.events.get(9);
        assertEquals(golden.id(), event.tableId());
        assertEquals(1000, event.eventId());
        assertArrayEquals(new int[] {0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 33}, event.values());
        assertEquals(0, golden.value(event, golden.column("Count")));
        assertEquals((6L << 32) | 3, golden.value(event, golden.column("Bytes")), "low half first");

        TelemetryRow sample = t.telemetry.get(0);
        assertArrayEquals(new int[] {100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111}, sample.values());
        assertEquals("tele.custom", s.string(sample.customPairs()[0]));
        assertEquals(-7, sample.customPairs()[1]);
        assertEquals(List.of(new ThreadState(7, frame, 5, 6_000_000_000L)), sample.threadStates());
        assertNull(t.telemetry.get(1).threadStates(), "no thread states sampled");
    }

    @Test
    void manyRowsAndAStringLongerThanTheReadBuffer() throws Exception {
        SnapshotFixture fixture = new SnapshotFixture();
        String big = "x".repeat(3 << 20) + "end";
        int bigIndex = fixture.index("string", big);
        int first = fixture.index("strings", 60_000, "string number ");
        Snapshot s = SnapshotReader.read(fixture.write(dir.resolve("big.snapshot")));
        assertEquals(big, s.string(bigIndex));
        assertEquals("string number 1", s.string(first));
        assertEquals("string number 60000", s.string(first + 59_999));
        assertTrue(s.tables().strings.liveCount() > 60_000);
    }
}
