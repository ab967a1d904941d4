package com.corvane.snapshot;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.SnapshotFileWriter;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * The memory part of a snapshot, written by hand until the agent captures
 * heaps; every other part is read from files the agent's own writer made
 * (GoldenSnapshotTest).
 */
class SnapshotReaderTest {
    @TempDir
    Path dir;

    private Snapshot read(SnapshotFileWriter writer) throws Exception {
        return SnapshotReader.read(writer.writeTo(dir.resolve("test.snapshot")));
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
