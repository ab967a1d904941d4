package com.corvane.snapshot;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.Profile;
import com.corvane.report.Report;
import com.corvane.snapshot.SnapshotFormatException.Kind;
import com.corvane.testing.Samples;
import com.corvane.testing.SnapshotFileWriter;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.TreeSet;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Cut and damaged files: each must fail with one message that names the place, never anything else. */
class CorruptSnapshotTest {
    /** Offsets of the fixed layout: magic 19, revision 4, time 8, then the header record's tag, time, length. */
    private static final int HEADER_RECORD = 31;

    @TempDir
    Path dir;

    private SnapshotFormatException failure(byte[] bytes) throws Exception {
        Path file = dir.resolve("bad.snapshot");
        Files.write(file, bytes);
        return assertThrows(SnapshotFormatException.class, () -> SnapshotReader.read(file));
    }

    private static byte[] memorySnapshot() {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.header.put("snapshot_flags", "513");
        w.row(Tables.STRING, 1, 1, "a");
        w.heapStrings.put(7, "name");
        w.heapClasses.add(new int[] {1, 2, 7});
        w.heapSegments.add(new byte[] {1, 2, 3, 4, 5});
        w.modifiedRow(Tables.STRING, 2, 3, "b");
        w.classInterfaces.put(2, new int[] {3});
        return w.toBytes();
    }

    /**
     * The offsets worth a cut or an inverted byte: the fixed header and every record's head byte by byte (with the
     * byte before it), every seventh byte of the bodies, and the last bytes. Far fewer than all, and still every
     * field that frames the file.
     */
    private static TreeSet<Integer> probes(byte[] file) {
        TreeSet<Integer> at = new TreeSet<>();
        for (int i = 0; i < HEADER_RECORD; i++) at.add(i);
        int record = HEADER_RECORD;
        while (record + 9 <= file.length) {
            for (int i = record - 1; i < record + 9; i++) at.add(i);
            long end = Math.min(file.length, record + 9 + (ByteBuffer.wrap(file).getInt(record + 5) & 0xFFFFFFFFL));
            for (int i = record + 9; i < end; i += 7) at.add(i);
            record = (int) end;
        }
        for (int i = file.length - 9; i < file.length; i++) at.add(i);
        return at;
    }

    @Test
    void everyProperPrefixIsTruncated() throws Exception {
        for (byte[] whole : new byte[][] {Samples.sampled().toBytes(), memorySnapshot()}) {
            Path file = dir.resolve("cut.snapshot");
            for (int length : probes(whole).tailSet(1)) {
                Files.write(file, Arrays.copyOf(whole, length));
                SnapshotFormatException e = assertThrows(SnapshotFormatException.class, () -> SnapshotReader.read(file),
                        "a file cut to " + length + " of " + whole.length + " bytes was read");
                assertEquals(Kind.TRUNCATED, e.kind(), e.getMessage());
                assertTrue(e.getMessage().startsWith("truncated snapshot: the file ends at offset " + length),
                        e.getMessage());
            }
        }
    }

    @Test
    void damageAnywhereGivesAFormatErrorOrAReadableFile() throws Exception {
        // An inverted byte: reading, building the tree and the report may fail only with the reader's own
        // exception, never with an unchecked one or by exhausting memory.
        byte[] whole = Samples.sampled().toBytes();
        Path file = dir.resolve("flipped.snapshot");
        for (int at : probes(whole)) {
            byte[] damaged = whole.clone();
            damaged[at] ^= (byte) 0xFF;
            Files.write(file, damaged);
            try {
                Snapshot snapshot = SnapshotReader.read(file);
                Report.build(snapshot, Profile.build(snapshot), new Report.Limits(10, 3, 5, 10));
            } catch (SnapshotFormatException e) {
                assertTrue(e.getMessage().contains("snapshot"), e.getMessage());
            } catch (RuntimeException | OutOfMemoryError e) {
                throw new AssertionError("byte " + at + " inverted: " + e, e);
            }
        }
    }

    @Test
    void notASnapshot() throws Exception {
        assertEquals(Kind.NOT_A_SNAPSHOT, failure(new byte[0]).kind());
        assertEquals(Kind.NOT_A_SNAPSHOT, failure("PK\u0003\u0004 a zip".getBytes()).kind());
        byte[] bytes = new SnapshotFileWriter().toBytes();
        bytes[18] = 'X'; // the magic ends with a zero byte
        SnapshotFormatException e = failure(bytes);
        assertEquals(Kind.NOT_A_SNAPSHOT, e.kind());
        assertEquals(18, e.offset());
        assertEquals("not a Corvane snapshot: the file does not begin with CORVANE_FILE_60000", e.getMessage());
    }

    @Test
    void unsupportedRevision() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.revision = 5;
        SnapshotFormatException e = failure(w.toBytes());
        assertEquals(19, e.offset(), "the revision follows the magic at once");
        assertTrue(e.getMessage().contains("format revision 5"), e.getMessage());
    }

    @Test
    void recordLengthThatDisagreesWithItsContents() throws Exception {
        byte[] bytes = new SnapshotFileWriter().toBytes();
        ByteBuffer buffer = ByteBuffer.wrap(bytes);
        int length = buffer.getInt(HEADER_RECORD + 5);
        buffer.putInt(HEADER_RECORD + 5, length - 1);
        SnapshotFormatException shorter = failure(bytes);
        assertEquals(Kind.CORRUPT, shorter.kind());
        assertTrue(shorter.getMessage().contains("runs past the end of record 37 (header block) at offset 31"),
                shorter.getMessage());

        buffer.putInt(HEADER_RECORD + 5, length + 1);
        SnapshotFormatException longer = failure(bytes);
        assertEquals(Kind.CORRUPT, longer.kind(), longer.getMessage());
    }

    @Test
    void recordWithNonZeroTimeOrUnknownTag() throws Exception {
        byte[] bytes = new SnapshotFileWriter().toBytes();
        bytes[HEADER_RECORD + 2] = 1;
        SnapshotFormatException time = failure(bytes);
        assertEquals(HEADER_RECORD + 1, time.offset());
        assertTrue(time.getMessage().contains("time field"), time.getMessage());

        bytes = new SnapshotFileWriter().toBytes();
        bytes[HEADER_RECORD] = 0x33;
        SnapshotFormatException tag = failure(bytes);
        assertEquals(HEADER_RECORD, tag.offset());
        assertTrue(tag.getMessage().contains("unknown tag 51 where the header block should be"), tag.getMessage());
    }

    @Test
    void rowsAndTablesOutOfOrder() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.row(Tables.STRING, 2, 1, "b");
        w.row(Tables.STRING, 1, 1, "a");
        byte[] bytes = w.toBytes();
        // The writer sorts rows; swap the two indices in the file to put them out of order.
        int first = indexOf(bytes, new byte[] {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 'a'});
        ByteBuffer.wrap(bytes).putInt(first, 3);
        SnapshotFormatException e = failure(bytes);
        assertEquals(first + 13, e.offset());
        assertTrue(e.getMessage().contains("row 1 of table \"string\" has the index 2, not above the previous index 3"),
                e.getMessage());

        w = new SnapshotFileWriter();
        bytes = w.toBytes();
        int slotOne = indexOf(bytes, new byte[] {2, 0, 0, 0, 1, 0, 0, 0, 0});
        bytes[slotOne + 4] = 2;
        SnapshotFormatException slot = failure(bytes);
        assertEquals(slotOne + 1, slot.offset());
        assertTrue(slot.getMessage().contains("table 2 (method) stands where table 1 (thread) belongs"),
                slot.getMessage());
    }

    @Test
    void impossibleCountsFailBeforeAllocating() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.row(Tables.EVENT, 1, 1, 32, 1, 0x7FFFFFFF);
        SnapshotFormatException e = failure(w.toBytes());
        assertEquals(Kind.CORRUPT, e.kind());
        assertTrue(e.getMessage().contains("row 1 of table \"event\" announces"), e.getMessage());

        w = new SnapshotFileWriter();
        w.row(Tables.STRING, 1, 1, -7);
        SnapshotFormatException string = failure(w.toBytes());
        assertTrue(string.getMessage().contains("has the negative length -7"), string.getMessage());

        w = new SnapshotFileWriter();
        w.row(Tables.STRING, 1, 0, "x");
        SnapshotFormatException stamp = failure(w.toBytes());
        assertTrue(stamp.getMessage().contains("stamp 0"), stamp.getMessage());
    }

    @Test
    void dataAfterThePerformanceSnapshotsLastRecord() throws Exception {
        byte[] whole = new SnapshotFileWriter().toBytes();
        byte[] longer = Arrays.copyOf(whole, whole.length + 9);
        longer[whole.length] = 0x25;
        SnapshotFormatException e = failure(longer);
        assertEquals(whole.length, e.offset());
        assertTrue(e.getMessage().contains("follows the last record"), e.getMessage());
    }

    @Test
    void invalidEventTableDescription() throws Exception {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.eventTables.put(33, "Broken\n2\nuptime_ns\n1\nsize\n");
        SnapshotFormatException e = failure(w.toBytes());
        assertTrue(e.getMessage().contains("event table 33: column 1 has no type"), e.getMessage());
        w.eventTables.put(33, "Broken\n1\nuptime_ns\n6\n");
        assertTrue(failure(w.toBytes()).getMessage().contains("unknown type 6"));
    }

    private static int indexOf(byte[] haystack, byte[] needle) {
        outer:
        for (int i = 0; i + needle.length <= haystack.length; i++) {
            for (int j = 0; j < needle.length; j++) {
                if (haystack[i + j] != needle[j]) {
                    continue outer;
                }
            }
            return i;
        }
        throw new AssertionError("pattern not in file");
    }
}
