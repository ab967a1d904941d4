package com.corvane.snapshot;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.Profile;
import com.corvane.report.Report;
import com.corvane.snapshot.SnapshotFormatException.Kind;
import com.corvane.testing.Samples;
import com.corvane.testing.SnapshotFileWriter;
import com.corvane.testing.SnapshotFixture;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.TreeSet;
import java.util.function.Consumer;
import java.util.function.Function;
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

    /** A damage to a sound file, and the failure it must give: kind, offset, a piece of the message, if not null. */
    record Damage(String what, Function<byte[], byte[]> damage, Kind kind, Integer offset, String message) {
    }

    private static Function<byte[], byte[]> at(int offset, Consumer<ByteBuffer> change) {
        return bytes -> {
            change.accept(ByteBuffer.wrap(bytes).position(offset));
            return bytes;
        };
    }

    @Test
    void damagedFramesFailWithTheirKindPlaceAndReason() throws Exception {
        int length = ByteBuffer.wrap(new SnapshotFixture().toBytes()).getInt(HEADER_RECORD + 5);
        int whole = new SnapshotFixture().toBytes().length;
        Damage[] damages = {
            new Damage("empty", bytes -> new byte[0], Kind.NOT_A_SNAPSHOT, null, null),
            new Damage("a zip", bytes -> "PK\u0003\u0004 a zip".getBytes(), Kind.NOT_A_SNAPSHOT, null, null),
            // The magic ends with a zero byte.
            new Damage("magic", at(18, b -> b.put((byte) 'X')), Kind.NOT_A_SNAPSHOT, 18,
                    "not a Corvane snapshot: the file does not begin with CORVANE_FILE_60000"),
            // The revision follows the magic at once.
            new Damage("revision", at(19, b -> b.putInt(5)), null, 19, "format revision 5"),
            new Damage("record length short", at(HEADER_RECORD + 5, b -> b.putInt(length - 1)), Kind.CORRUPT, null,
                    "runs past the end of record 37 (header block) at offset 31"),
            new Damage("record length long", at(HEADER_RECORD + 5, b -> b.putInt(length + 1)), Kind.CORRUPT, null, null),
            new Damage("record time", at(HEADER_RECORD + 2, b -> b.put((byte) 1)), null, HEADER_RECORD + 1, "time field"),
            new Damage("record tag", at(HEADER_RECORD, b -> b.put((byte) 0x33)), null, HEADER_RECORD,
                    "unknown tag 51 where the header block should be"),
            new Damage("data after the last record", bytes -> {
                byte[] longer = Arrays.copyOf(bytes, bytes.length + 9);
                longer[bytes.length] = 0x25;
                return longer;
            }, null, whole, "follows the last record"),
        };
        for (Damage d : damages) {
            SnapshotFormatException e = failure(d.damage().apply(new SnapshotFixture().toBytes()));
            if (d.kind() != null) {
                assertEquals(d.kind(), e.kind(), d.what() + ": " + e.getMessage());
            }
            if (d.offset() != null) {
                assertEquals((long) d.offset(), e.offset(), d.what() + ": " + e.getMessage());
            }
            if (d.message() != null) {
                assertTrue(e.getMessage().contains(d.message()), d.what() + ": " + e.getMessage());
            }
        }
    }

    /** Where the string row of a text begins: its index, then stamp, length and bytes. */
    private static int stringRow(byte[] file, String text) {
        byte[] pattern = ByteBuffer.allocate(4 + text.length()).putInt(text.length()).put(text.getBytes()).array();
        return indexOf(file, pattern) - 8;
    }

    @Test
    void rowsAndTablesOutOfOrder() throws Exception {
        SnapshotFixture fixture = new SnapshotFixture();
        int first = fixture.index("string", "first of two");
        byte[] bytes = fixture.toBytes();
        // Give the first row an index above the next one's.
        int row = stringRow(bytes, "first of two");
        ByteBuffer.wrap(bytes).putInt(row, first + 5);
        SnapshotFormatException e = failure(bytes);
        assertEquals(row + 12 + "first of two".length(), e.offset());
        assertTrue(e.getMessage().contains("of table \"string\" has the index " + (first + 1)
                + ", not above the previous index " + (first + 5)), e.getMessage());

        bytes = new SnapshotFixture().toBytes();
        int slotOne = indexOf(bytes, new byte[] {2, 0, 0, 0, 1, 0, 0, 0, 0, 2, 0, 0, 0, 2});
        bytes[slotOne + 4] = 2;
        SnapshotFormatException slot = failure(bytes);
        assertEquals(slotOne + 1, slot.offset());
        assertTrue(slot.getMessage().contains("table 2 (method) stands where table 1 (thread) belongs"),
                slot.getMessage());
    }

    @Test
    void impossibleCountsFailBeforeAllocating() throws Exception {
        SnapshotFixture fixture = new SnapshotFixture();
        fixture.command("event", 32, 0x5EED, 7);
        byte[] bytes = fixture.toBytes();
        int count = indexOf(bytes, new byte[] {0, 0, 0x5E, (byte) 0xED, 0, 0, 0, 1}) + 4;
        ByteBuffer.wrap(bytes).putInt(count, 0x7FFFFFFF);
        SnapshotFormatException e = failure(bytes);
        assertEquals(Kind.CORRUPT, e.kind());
        assertTrue(e.getMessage().contains("of table \"event\" announces"), e.getMessage());

        fixture = new SnapshotFixture();
        fixture.command("string", "a marked text");
        byte[] whole = fixture.toBytes();
        int row = stringRow(whole, "a marked text");
        bytes = whole.clone();
        ByteBuffer.wrap(bytes).putInt(row + 8, -7);
        SnapshotFormatException string = failure(bytes);
        assertTrue(string.getMessage().contains("has the negative length -7"), string.getMessage());

        bytes = whole.clone();
        ByteBuffer.wrap(bytes).putInt(row + 4, 0);
        SnapshotFormatException stamp = failure(bytes);
        assertTrue(stamp.getMessage().contains("stamp 0"), stamp.getMessage());
    }

    @Test
    void invalidEventTableDescription() throws Exception {
        SnapshotFixture fixture = new SnapshotFixture();
        int id = fixture.index("event_table", "Broken\n2\nuptime_ns\n1\nsize\n");
        SnapshotFormatException e = failure(fixture.toBytes());
        assertTrue(e.getMessage().contains("event table " + id + ": column 1 has no type"), e.getMessage());
        fixture = new SnapshotFixture();
        fixture.command("event_table", "Broken\n1\nuptime_ns\n6\n");
        assertTrue(failure(fixture.toBytes()).getMessage().contains("unknown type 6"));
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
