package com.corvane.snapshot;

import com.corvane.snapshot.SnapshotFormatException.Kind;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;

/**
 * Reads a snapshot file into a {@link Snapshot}. The file is checked as it is
 * read: every record must end where its length says, tables come in slot
 * order, rows in index order, and nothing may follow the last record.
 */
public final class SnapshotReader {
    public static final String MAGIC = "CORVANE_FILE_60000";
    public static final int MAGIC_SIZE = 19;
    public static final int REVISION = 4;

    public static final int TAG_UTF8 = 0x01;
    public static final int TAG_LOAD_CLASS = 0x02;
    public static final int TAG_HEAP_DUMP_SEGMENT = 0x1C;
    public static final int TAG_BLOCK = 0x25;
    public static final int TAG_HEAP_DUMP_END = 0x2C;

    public static final int ITEM_PROPERTIES = 1;
    public static final int ITEM_TABLE = 2;
    public static final int ITEM_EVENT_TABLE = 3;
    public static final int ITEM_CLASS_INTERFACES = 8;
    public static final int ITEM_CLASS_CONSTANT_POOL_REFERENCES = 9;

    /** A length field that did not fit: the writer marks such a record with all ones. */
    private static final long LENGTH_OVERFLOW = 0xFFFFFFFFL;
    private static final int RECORD_HEADER_SIZE = 9;

    /** Told how far reading has come, in bytes of the file. */
    public interface ProgressListener {
        void progress(long position, long size);
    }

    private final SnapshotInput myIn;
    private final ProgressListener myProgress;

    private SnapshotReader(SnapshotInput in, ProgressListener progress) {
        myIn = in;
        myProgress = progress;
    }

    public static Snapshot read(Path file) throws IOException, SnapshotFormatException {
        return read(file, null);
    }

    public static Snapshot read(Path file, ProgressListener progress) throws IOException, SnapshotFormatException {
        try (SnapshotInput in = new SnapshotInput(file)) {
            return new SnapshotReader(in, progress).readFile(file);
        }
    }

    /** Where the reader is in the file's sequence of records. */
    private enum Stage {
        HEADER_BLOCK("the header block"),
        TABLES_BLOCK("the tables block"),
        END_OF_PERFORMANCE("the end of the file"),
        HEAP_STRINGS_AND_CLASSES("heap strings, class records or the heap dump"),
        HEAP_SEGMENTS("further heap dump segments or the heap dump end"),
        MODIFIED_TABLES_BLOCK("the block of tables modified during the heap dump"),
        CLASS_REFERENCES_BLOCK("the class references block"),
        END_OF_MEMORY("the end of the file");

        final String expected;

        Stage(String expected) {
            this.expected = expected;
        }
    }

    private Snapshot readFile(Path file) throws IOException, SnapshotFormatException {
        readMagic();
        long revisionAt = myIn.position();
        int revision = myIn.readInt("the format revision");
        if (revision != REVISION) {
            throw SnapshotFormatException.corrupt(revisionAt,
                    "format revision " + revision + " is not the supported revision " + REVISION);
        }
        long creationTimeMs = myIn.readLong("the creation time");

        Map<String, String> header = new LinkedHashMap<>();
        TreeMap<Integer, EventTableDescription> eventTables = new TreeMap<>();
        Tables tables = new Tables();
        Map<Integer, String> hprofStrings = new HashMap<>();
        List<Snapshot.HprofClass> hprofClasses = new ArrayList<>();
        List<Snapshot.HeapSegment> heapSegments = new ArrayList<>();
        Map<Integer, int[]> interfaces = new HashMap<>();
        Map<Integer, List<Snapshot.ConstantPoolReference>> constantPoolReferences = new HashMap<>();
        boolean memory = false;

        Stage stage = Stage.HEADER_BLOCK;
        while (!myIn.atEnd()) {
            long start = myIn.position();
            int tag = myIn.readByte("a record tag");
            int time = myIn.readInt("the time field of record " + tag);
            long length = myIn.readInt("the length field of record " + tag) & 0xFFFFFFFFL;
            if (time != 0) {
                throw SnapshotFormatException.corrupt(start + 1,
                        "record " + tag + " has the time field " + time + " where the format has 0");
            }
            long bodyStart = myIn.position();
            boolean overflow = length == LENGTH_OVERFLOW;
            if (!overflow && bodyStart + length > myIn.size()) {
                throw SnapshotFormatException.truncated(myIn.size(),
                        describeRecord(tag, stage) + " of " + length + " bytes", start);
            }
            if (overflow && !(tag == TAG_BLOCK
                    && (stage == Stage.TABLES_BLOCK || stage == Stage.MODIFIED_TABLES_BLOCK))) {
                throw SnapshotFormatException.corrupt(start + 5,
                        describeRecord(tag, stage) + " has the length 0xFFFFFFFF, which only a tables block may have");
            }
            long end = overflow ? myIn.size() : bodyStart + length;
            if (overflow) {
                myIn.clearLimit(); // the record reaches as far as its contents do
            } else {
                myIn.setLimit(end, describeRecord(tag, stage) + " at offset " + start);
            }
            switch (stage) {
                case HEADER_BLOCK:
                    expectTag(tag, TAG_BLOCK, start, stage);
                    readHeaderBlock(header, eventTables, end);
                    memory = (parseFlags(header) & Snapshot.FLAG_MEMORY) != 0;
                    stage = Stage.TABLES_BLOCK;
                    break;
                case TABLES_BLOCK:
                    expectTag(tag, TAG_BLOCK, start, stage);
                    readTablesBlock(tables, eventTables, end, overflow, "the tables block");
                    stage = memory ? Stage.HEAP_STRINGS_AND_CLASSES : Stage.END_OF_PERFORMANCE;
                    break;
                case HEAP_STRINGS_AND_CLASSES:
                case HEAP_SEGMENTS:
                    if (tag == TAG_UTF8 && stage == Stage.HEAP_STRINGS_AND_CLASSES) {
                        readHprofString(hprofStrings, length, start);
                    } else if (tag == TAG_LOAD_CLASS && stage == Stage.HEAP_STRINGS_AND_CLASSES) {
                        readHprofClass(hprofClasses, length, start);
                    } else if (tag == TAG_HEAP_DUMP_SEGMENT) {
                        heapSegments.add(new Snapshot.HeapSegment(bodyStart, length));
                        myIn.seek(end);
                        stage = Stage.HEAP_SEGMENTS;
                    } else if (tag == TAG_HEAP_DUMP_END && stage == Stage.HEAP_SEGMENTS) {
                        if (length != 0) {
                            throw SnapshotFormatException.corrupt(start + 5,
                                    "the heap dump end record has the length " + length + " where the format has 0");
                        }
                        stage = Stage.MODIFIED_TABLES_BLOCK;
                    } else {
                        throw unexpectedRecord(tag, start, stage);
                    }
                    break;
                case MODIFIED_TABLES_BLOCK:
                    expectTag(tag, TAG_BLOCK, start, stage);
                    Tables modified = new Tables();
                    readTablesBlock(modified, eventTables, end, overflow, "the modified tables block");
                    overlay(tables, modified);
                    stage = Stage.CLASS_REFERENCES_BLOCK;
                    break;
                case CLASS_REFERENCES_BLOCK:
                    expectTag(tag, TAG_BLOCK, start, stage);
                    readClassReferencesBlock(interfaces, constantPoolReferences, end);
                    stage = Stage.END_OF_MEMORY;
                    break;
                default:
                    throw SnapshotFormatException.corrupt(start, describeRecord(tag, stage)
                            + " follows the last record of the snapshot");
            }
            if (!overflow && myIn.position() != end) {
                throw SnapshotFormatException.corrupt(myIn.position(), describeRecord(tag, stage)
                        + " at offset " + start + " declares " + length + " bytes but its contents end "
                        + (myIn.position() - bodyStart) + " bytes in");
            }
            myIn.clearLimit();
            reportProgress();
        }
        if (stage != Stage.END_OF_PERFORMANCE && stage != Stage.END_OF_MEMORY) {
            throw new SnapshotFormatException(Kind.TRUNCATED, myIn.size(),
                    "truncated snapshot: the file ends at offset " + myIn.size() + " where " + stage.expected
                            + " should follow");
        }
        Snapshot.MemoryPart memoryPart = memory
                ? new Snapshot.MemoryPart(hprofStrings, hprofClasses, heapSegments, interfaces, constantPoolReferences)
                : null;
        return new Snapshot(file, myIn.size(), revision, creationTimeMs, header, eventTables, tables, memoryPart);
    }

    private void readMagic() throws IOException, SnapshotFormatException {
        byte[] expected = Arrays.copyOf(MAGIC.getBytes(StandardCharsets.US_ASCII), MAGIC_SIZE);
        int available = (int) Math.min(MAGIC_SIZE, myIn.size());
        byte[] found = available == 0 ? new byte[0] : myIn.readBytes(available, "the magic");
        for (int i = 0; i < available; i++) {
            if (found[i] != expected[i]) {
                throw new SnapshotFormatException(Kind.NOT_A_SNAPSHOT, i,
                        "not a Corvane snapshot: the file does not begin with " + MAGIC);
            }
        }
        if (available < MAGIC_SIZE) {
            if (available == 0) {
                throw new SnapshotFormatException(Kind.NOT_A_SNAPSHOT, 0, "not a Corvane snapshot: the file is empty");
            }
            throw SnapshotFormatException.truncated(myIn.size(), "the magic", 0);
        }
    }

    private static String describeRecord(int tag, Stage stage) {
        switch (tag) {
            case TAG_BLOCK:
                if (stage == Stage.HEADER_BLOCK) {
                    return "record 37 (header block)";
                }
                if (stage == Stage.TABLES_BLOCK) {
                    return "record 37 (tables block)";
                }
                if (stage == Stage.MODIFIED_TABLES_BLOCK) {
                    return "record 37 (modified tables block)";
                }
                if (stage == Stage.CLASS_REFERENCES_BLOCK) {
                    return "record 37 (class references block)";
                }
                return "record 37";
            case TAG_UTF8:
                return "record 1 (heap string)";
            case TAG_LOAD_CLASS:
                return "record 2 (class record)";
            case TAG_HEAP_DUMP_SEGMENT:
                return "record 28 (heap dump segment)";
            case TAG_HEAP_DUMP_END:
                return "record 44 (heap dump end)";
            default:
                return "record with the unknown tag " + tag;
        }
    }

    private static void expectTag(int tag, int expected, long start, Stage stage) throws SnapshotFormatException {
        if (tag != expected) {
            throw unexpectedRecord(tag, start, stage);
        }
    }

    private static SnapshotFormatException unexpectedRecord(int tag, long start, Stage stage) {
        return SnapshotFormatException.corrupt(start,
                describeRecord(tag, stage) + " where " + stage.expected + " should be");
    }

    private static int parseFlags(Map<String, String> header) {
        try {
            return Integer.parseInt(header.getOrDefault("snapshot_flags", "0").trim());
        } catch (NumberFormatException e) {
            return 0;
        }
    }

    private void reportProgress() {
        if (myProgress != null) {
            myProgress.progress(myIn.position(), myIn.size());
        }
    }

    // The header block: the properties, then the event table layouts in ascending id.
    private void readHeaderBlock(Map<String, String> header, TreeMap<Integer, EventTableDescription> eventTables,
            long end) throws IOException, SnapshotFormatException {
        boolean first = true;
        while (myIn.position() < end) {
            long itemAt = myIn.position();
            int kind = myIn.readByte("an item kind");
            if (first && kind != ITEM_PROPERTIES) {
                throw SnapshotFormatException.corrupt(itemAt,
                        "the header block begins with item kind " + kind + " instead of the properties (1)");
            }
            if (kind == ITEM_PROPERTIES && first) {
                long countAt = myIn.position();
                int count = myIn.readInt("the property count");
                if (count < 0) {
                    throw SnapshotFormatException.corrupt(countAt, "the property count " + count + " is negative");
                }
                for (int i = 0; i < count; i++) {
                    String key = myIn.readString("the key of header property " + i, false);
                    String value = myIn.readString("the value of header property \"" + key + "\"", false);
                    header.put(key, value);
                }
            } else if (kind == ITEM_EVENT_TABLE) {
                long idAt = myIn.position();
                int id = myIn.readInt("an event table id");
                if (id < 32 || id > 127) {
                    throw SnapshotFormatException.corrupt(idAt, "event table id " + id + " is outside 32 to 127");
                }
                if (!eventTables.isEmpty() && id <= eventTables.lastKey()) {
                    throw SnapshotFormatException.corrupt(idAt,
                            "event table " + id + " follows event table " + eventTables.lastKey());
                }
                long textAt = myIn.position();
                String text = myIn.readString("the description of event table " + id, false);
                Object parsed = EventTableDescription.parse(id, text);
                if (parsed instanceof String) {
                    throw SnapshotFormatException.corrupt(textAt, "event table " + id + ": " + parsed);
                }
                eventTables.put(id, (EventTableDescription) parsed);
            } else {
                throw SnapshotFormatException.corrupt(itemAt, "item kind " + kind + " does not belong in the header block");
            }
            first = false;
        }
        if (first) {
            throw SnapshotFormatException.corrupt(end, "the header block is empty");
        }
    }

    // A tables block: kind 2, slot, rows, for every slot from 0 to 19.
    private void readTablesBlock(Tables tables, Map<Integer, EventTableDescription> eventTables, long end,
            boolean lengthOverflow, String blockName) throws IOException, SnapshotFormatException {
        int expectedSlot = 0;
        while (lengthOverflow ? expectedSlot < Tables.COUNT : myIn.position() < end) {
            long itemAt = myIn.position();
            int kind = myIn.readByte("an item kind");
            if (kind != ITEM_TABLE) {
                throw SnapshotFormatException.corrupt(itemAt, "item kind " + kind + " does not belong in " + blockName);
            }
            long slotAt = myIn.position();
            int slot = myIn.readInt("a table index");
            if (slot < 0 || slot >= Tables.COUNT) {
                throw SnapshotFormatException.corrupt(slotAt, "table index " + slot + " is outside 0 to 19");
            }
            if (slot != expectedSlot) {
                throw SnapshotFormatException.corrupt(slotAt, "table " + slot + " (" + Tables.name(slot)
                        + ") stands where table " + expectedSlot + " (" + Tables.name(expectedSlot) + ") belongs");
            }
            TableRows.readTable(myIn, tables.bySlot(slot), this::reportProgress);
            expectedSlot++;
            reportProgress();
        }
        if (expectedSlot < Tables.COUNT) {
            throw SnapshotFormatException.corrupt(end, blockName + " ends before table " + expectedSlot + " ("
                    + Tables.name(expectedSlot) + ")");
        }
    }

    private void readHprofString(Map<Integer, String> strings, long length, long start)
            throws IOException, SnapshotFormatException {
        if (length < 4) {
            throw SnapshotFormatException.corrupt(start + 5, "a heap string record of " + length + " bytes has no id");
        }
        int id = myIn.readInt("the id of a heap string");
        byte[] bytes = myIn.readBytes((int) (length - 4), "a heap string");
        strings.put(id, new String(bytes, StandardCharsets.UTF_8));
    }

    private void readHprofClass(List<Snapshot.HprofClass> classes, long length, long start)
            throws IOException, SnapshotFormatException {
        if (length != 16) {
            throw SnapshotFormatException.corrupt(start + 5, "a class record has " + length + " bytes instead of 16");
        }
        int serial = myIn.readInt("a class serial number");
        int classId = myIn.readInt("a class id");
        myIn.readInt("a stack trace serial");
        int nameId = myIn.readInt("a class name id");
        classes.add(new Snapshot.HprofClass(serial, classId, nameId));
    }

    private void readClassReferencesBlock(Map<Integer, int[]> interfaces,
            Map<Integer, List<Snapshot.ConstantPoolReference>> references, long end)
            throws IOException, SnapshotFormatException {
        while (myIn.position() < end) {
            long itemAt = myIn.position();
            int kind = myIn.readByte("an item kind");
            if (kind != ITEM_CLASS_INTERFACES && kind != ITEM_CLASS_CONSTANT_POOL_REFERENCES) {
                throw SnapshotFormatException.corrupt(itemAt,
                        "item kind " + kind + " does not belong in the class references block");
            }
            int classId = myIn.readInt("a class id");
            long countAt = myIn.position();
            int count = myIn.readInt("a reference count");
            if (count < 0) {
                throw SnapshotFormatException.corrupt(countAt, "class " + classId + " has the reference count " + count);
            }
            if (kind == ITEM_CLASS_INTERFACES) {
                myIn.requireRoom(count * 4L, countAt, "the interfaces of class " + classId);
                int[] ids = new int[count];
                for (int i = 0; i < count; i++) {
                    ids[i] = myIn.readInt("an interface of class " + classId);
                }
                interfaces.put(classId, ids);
            } else {
                myIn.requireRoom(count * 8L, countAt, "the constant pool references of class " + classId);
                List<Snapshot.ConstantPoolReference> list = new ArrayList<>(count);
                for (int i = 0; i < count; i++) {
                    String what = "a constant pool reference of class " + classId;
                    list.add(new Snapshot.ConstantPoolReference(myIn.readInt(what), myIn.readInt(what)));
                }
                references.put(classId, list);
            }
        }
    }

    /**
     * Lays the rows changed during a heap dump over the first tables. A table
     * whose clear is among the changes is forgotten before its rows apply.
     */
    private static void overlay(Tables base, Tables changes) {
        for (Table.Entry<Void> cleared : changes.tableGenerations.liveEntries()) {
            if (cleared.index() >= 0 && cleared.index() < Tables.COUNT) {
                base.bySlot(cleared.index()).clear();
            }
        }
        for (int slot = 0; slot < Tables.COUNT; slot++) {
            overlayTable(base.bySlot(slot), changes.bySlot(slot));
        }
    }

    @SuppressWarnings("unchecked")
    private static <R> void overlayTable(Table<R> base, Table<?> changes) {
        for (Table.Entry<?> entry : changes.entries()) {
            base.put((Table.Entry<R>) entry);
        }
    }
}
