package com.corvane.snapshot;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Rows.EventRow;
import com.corvane.snapshot.Rows.TelemetryRow;
import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.testing.SnapshotFileWriter;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class SnapshotReaderTest {
    @TempDir
    Path dir;

    private Snapshot read(SnapshotFileWriter writer) throws Exception {
        return SnapshotReader.read(writer.writeTo(dir.resolve("test.snapshot")));
    }

    @Test
    void readsFixedHeaderAndHeaderPropertiesInOrder() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.creationTimeMs = 1_234_567_000L;
        Snapshot s = read(w);
        assertEquals(4, s.revision());
        assertEquals(1_234_567_000L, s.creationTimeMs());
        assertEquals(List.copyOf(w.header.keySet()), List.copyOf(s.header().keySet()));
        assertEquals("TestApp", s.header("session_name"));
        assertEquals(32, s.header("oid_count").length());
        assertFalse(s.isMemorySnapshot());
        assertNull(s.memoryPart());
    }

    @Test
    void readsEveryFixedTableWithItsColumnOrder() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.row(Tables.STRING, 1, 3, "main");
        w.row(Tables.STRING, 2, 3, "");
        w.row(Tables.THREAD, 1, 2, 1, 0, 7, 3, 0x1122334455L, 1, 99L, -5L);
        w.row(Tables.METHOD, 4, 1, 1, 2, 1, 2, 1, 0x1000);
        w.row(Tables.THREAD_FRAME, 9, 1, 7, 5);
        w.row(Tables.MONITOR, 1, 1, 3, 5, 4, 1, 777L, 8L);
        w.row(Tables.CPU_PROFILING, 9, 1, 123_456_789_012L, 42L);
        w.row(Tables.INSTANCE_COUNT, 1, 1, 1, 17, 4096L);
        w.row(Tables.FRAME, 5, 1, 0, 0xC0000000 | (12 << 19) | 4, -1, -1);
        w.row(Tables.TABLE_GENERATION, 5, 6);
        w.row(Tables.SNAPSHOT, 1, 1, 2, 1_600_000_000_000L);
        w.row(Tables.ALLOC_INFO, 9, 1, 10L, 640L, 33L);
        w.row(Tables.GENERATION, 1, 1, 1, 5000L);
        w.row(Tables.PROPERTIES, 1, 1, 1, -2);
        w.row(Tables.EXCEPTION, 1, 1, 3, 5, 0, 1, 2L);
        w.row(Tables.CODE_POINT, 1, 1, 4, 3000);
        w.row(Tables.CALL_COUNT, 4, 1, 1L << 40);
        w.row(Tables.ALLOC_POINT, 1, 1, 0x80000001, 1);
        w.row(Tables.ALLOC_OBJECT_COUNT, 2, 1, -3L);
        Snapshot s = read(w);
        Tables t = s.tables();
        assertEquals("main", s.string(1));
        assertEquals("", s.string(2), "an empty text is a string like any other");
        assertEquals(new ThreadRow(1, 0, 7, 3, 0x1122334455L, 1, 99L, -5L), t.threads.get(1));
        assertEquals(new Rows.MethodRow(1, 2, 1, 2, 1, 0x1000), t.methods.get(4));
        assertEquals(new Rows.ThreadFrameRow(7, 5), t.threadFrames.get(9));
        assertEquals(new Rows.MonitorRow(3, 5, 4, 1, 777L, 8L), t.monitors.get(1));
        assertEquals(new Rows.CpuRow(123_456_789_012L, 42L), t.cpuProfiling.get(9));
        assertEquals(new Rows.InstanceCountRow(1, 17, 4096L), t.instanceCounts.get(1));
        assertEquals(6, t.tableGenerations.entry(5).stamp());
        assertEquals(new Rows.SnapshotRow(2, 1_600_000_000_000L), t.snapshots.get(1));
        assertEquals(new Rows.AllocInfoRow(10L, 640L, 33L), t.allocInfo.get(9));
        assertEquals(new Rows.GenerationRow(1, 5000L), t.generations.get(1));
        assertEquals(new Rows.PropertyRow(1, -2), t.properties.get(1));
        assertEquals(new Rows.ExceptionRow(3, 5, 0, 1, 2L), t.exceptions.get(1));
        assertEquals(1L << 40, t.callCounts.get(4));
        assertEquals(new Rows.AllocPointRow(0x80000001, 1), t.allocPoints.get(1));
        assertEquals(-3L, t.allocObjectCounts.get(2));
        // Code points: packed, and through the code_point table for a line above 2047.
        int frameCodePoint = t.frames.get(5).codePoint();
        assertEquals(4, s.methodOfCodePoint(frameCodePoint));
        assertEquals(12, s.lineOfCodePoint(frameCodePoint));
        assertEquals(4, s.methodOfCodePoint(0x80000001));
        assertEquals(3000, s.lineOfCodePoint(0x80000001));
        assertEquals(4, s.methodOfCodePoint(4));
        assertEquals(0, s.lineOfCodePoint(4));
    }

    @Test
    void deletedRowsCarryNoColumnsAndNullStringsAreKept() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.row(Tables.STRING, 1, 2, "kept");
        w.row(Tables.STRING, 2, -3);
        w.row(Tables.STRING, 3, 4, (Object) null);
        w.row(Tables.STRING, 4, 4, "after");
        w.row(Tables.THREAD_FRAME, 1, -2);
        w.row(Tables.THREAD_FRAME, 2, 2, 1, 1);
        w.row(Tables.TABLE_GENERATION, 4, -7);
        w.row(Tables.TABLE_GENERATION, 5, 7);
        Snapshot s = read(w);
        Table<String> strings = s.tables().strings;
        assertEquals("kept", strings.get(1));
        assertFalse(strings.isLive(2));
        assertEquals(-3, strings.entry(2).stamp());
        assertTrue(strings.isLive(3));
        assertNull(strings.get(3));
        assertEquals("after", strings.get(4));
        assertEquals(new Rows.ThreadFrameRow(1, 1), s.tables().threadFrames.get(2));
        assertEquals(1, s.tables().threadFrames.liveCount());
        assertEquals(-7, s.tables().tableGenerations.entry(4).stamp());
        assertTrue(s.tables().tableGenerations.isLive(5));
    }

    @Test
    void telemetryRowsWithAndWithoutThreadStates() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        int[] fixed = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
        // pairs, states, 12 values, pairs, states as TRN, frame, state, cpu
        w.row(Tables.TELE, 0, 1, 3, -1, fixed, new int[] {101, 1, 102, 2, 103, 3});
        w.row(Tables.TELE, 1, 1, 0, 2, fixed, 5, 9, 0x4, 1000L, 6, 0, 0x400, 2000L);
        w.row(Tables.TELE, 7, 1, 0, 0, fixed);
        Snapshot s = read(w);
        TelemetryRow first = s.tables().telemetry.get(0);
        assertArrayEquals(fixed, first.values());
        assertArrayEquals(new int[] {101, 1, 102, 2, 103, 3}, first.customPairs());
        assertNull(first.threadStates(), "-1 states means none were sampled");
        TelemetryRow second = s.tables().telemetry.get(1);
        assertEquals(List.of(new Rows.ThreadState(5, 9, 0x4, 1000L), new Rows.ThreadState(6, 0, 0x400, 2000L)),
                second.threadStates());
        assertEquals(List.of(), s.tables().telemetry.get(7).threadStates());
    }

    @Test
    void eventTablesKeepTheirIdsAndDescribeTheirRows() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        String classLoading = "Class Loading\n5\nuptime_ns\n1\nthread\n0\nframe\n0\nClass\n4\nLoaded or Unloaded\n2\n";
        w.eventTables.put(32, classLoading);
        w.eventTables.put(40, "Files\n2\nuptime_ns\n1\nsize\nx\n");
        w.row(Tables.STRING, 1, 1, "java.lang.String");
        w.row(Tables.EVENT, 1, 1, 32, 900, 7, new int[] {5, 0, 0, 1, 7, 1, 0});
        w.row(Tables.EVENT, 2, 1, 40, 901, 3, new int[] {0xFFFFFFFF, 0x1, 77});
        w.row(Tables.EVENT, 3, 1, 40, 902, 0, new int[0]);
        Snapshot s = read(w);
        assertEquals(List.of(32, 40), List.copyOf(s.eventTables().keySet()), "ids are not renumbered");
        EventTableDescription loading = s.eventTables().get(32);
        assertEquals("Class Loading", loading.name());
        assertEquals(classLoading, loading.text());
        assertEquals(6, loading.valueCount(), "uptime_ns takes two values");
        assertEquals(4, loading.column("Class").offset());
        EventTableDescription files = s.eventTables().get(40);
        assertEquals(EventTableDescription.TYPE_INT, files.column("size").type(), "a type that is no number is 0");
        EventRow row = s.tables().events.get(2);
        assertEquals(0x1FFFFFFFFL, files.value(row, files.column("uptime_ns")), "low half first");
        assertEquals(77, files.value(row, files.column("size")));
        assertEquals(0, s.tables().events.get(3).values().length);
    }

    @Test
    void propertiesAsIntsLongHalvesAndStringIndices() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.row(Tables.STRING, 1, 1, "kzt.uptime.ns.low");
        w.row(Tables.STRING, 2, 1, "kzt.uptime.ns.high");
        w.row(Tables.STRING, 3, 1, "kzt.command.line");
        w.row(Tables.STRING, 4, 1, "java\n-Xmx1g\nMain");
        w.row(Tables.PROPERTIES, 1, 1, 1, 0x89ABCDEF);
        w.row(Tables.PROPERTIES, 2, 1, 2, 0x12);
        w.row(Tables.PROPERTIES, 3, 1, 3, 4);
        Snapshot s = read(w);
        assertEquals(0x12_89ABCDEFL, s.longProperty("kzt.uptime.ns"), "the low half is unsigned");
        assertEquals("java\n-Xmx1g\nMain", s.stringProperty("kzt.command.line"));
        assertNull(s.property("absent"));
        assertNull(s.longProperty("absent"));
    }

    @Test
    void stringsLongerThanTheReadBufferAndManyRows() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        String big = "x".repeat(3 << 20) + "end";
        w.header.put("huge", big);
        for (int i = 1; i <= 60_000; i++) {
            w.row(Tables.STRING, i, 1, "string number " + i);
        }
        Snapshot s = read(w);
        assertEquals(big, s.header("huge"));
        assertEquals(60_000, s.tables().strings.liveCount());
        assertEquals("string number 60000", s.string(60_000));
    }

    @Test
    void tablesBlockWithOverflowedLength() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.tablesLengthOverflow = true;
        w.row(Tables.STRING, 1, 1, "still read");
        assertEquals("still read", read(w).string(1));
    }

    @Test
    void memorySnapshotOverlaysTheTablesModifiedDuringTheHeapDump() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.header.put("snapshot_flags", Integer.toString(0x200 | 0x8000 | 1));
        w.row(Tables.STRING, 1, 1, "old");
        w.row(Tables.STRING, 2, 1, "dropped later");
        w.row(Tables.MONITOR, 1, 1, 1, 1, 1, 1, 10L, 1L);
        w.row(Tables.MONITOR, 2, 1, 1, 1, 1, 1, 20L, 2L);
        w.heapStrings.put(1, "java.lang.Object");
        w.heapStrings.put(2, "value");
        w.heapClasses.add(new int[] {1, 100, 1});
        w.heapSegments.add(new byte[] {0x20, 1, 2, 3});
        w.heapSegments.add(new byte[0]);
        w.modifiedRow(Tables.STRING, 1, 5, "new");
        w.modifiedRow(Tables.STRING, 2, -5);
        w.modifiedRow(Tables.TABLE_GENERATION, Tables.MONITOR, 5);
        w.modifiedRow(Tables.MONITOR, 3, 5, 2, 2, 2, 1, 30L, 3L);
        w.classConstantPoolReferences.put(100, new int[] {3, 200, 4, 201});
        w.classInterfaces.put(100, new int[] {300, 301});
        Snapshot s = read(w);
        assertTrue(s.isMemorySnapshot());
        assertEquals("new", s.string(1));
        assertFalse(s.tables().strings.isLive(2));
        assertEquals(List.of(3), s.tables().monitors.liveEntries().stream().map(Table.Entry::index).toList(),
                "a table cleared during the dump loses its earlier rows");
        Snapshot.MemoryPart heap = s.memoryPart();
        assertEquals("java.lang.Object", heap.hprofStrings().get(1));
        assertEquals(List.of(new Snapshot.HprofClass(1, 100, 1)), heap.hprofClasses());
        assertEquals(2, heap.heapSegments().size());
        assertEquals(4, heap.heapSegments().get(0).length());
        assertArrayEquals(new int[] {300, 301}, heap.classInterfaces().get(100));
        assertEquals(List.of(new Snapshot.ConstantPoolReference(3, 200), new Snapshot.ConstantPoolReference(4, 201)),
                heap.classConstantPoolReferences().get(100));
    }
}
