package com.corvane.testing;

import java.io.ByteArrayOutputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Writes snapshot files byte for byte as the agent does, from rows given by
 * the test: fixed header, header block, tables block and, for a memory
 * snapshot, the heap records and the two blocks that follow them. Each row
 * is its index, stamp and column values: an Integer is an int, a Long a long,
 * a String a string (null: length -1), an int[] ints.
 */
public final class SnapshotFileWriter {
    public static final int TABLE_COUNT = 20;

    /** A row as it goes into the stream. */
    public record Row(int index, int stamp, Object[] columns) {
    }

    private static final long CREATION_TIME_MS = 1_700_000_000_000L;

    public final Map<String, String> header = new LinkedHashMap<>();
    public final List<List<Row>> tables = new ArrayList<>();

    // Memory snapshot parts; used when header "snapshot_flags" has bit 1.
    public final Map<Integer, String> heapStrings = new LinkedHashMap<>();
    public final List<int[]> heapClasses = new ArrayList<>(); // serial, class id, name id
    public final List<byte[]> heapSegments = new ArrayList<>();
    public final List<List<Row>> modifiedTables = new ArrayList<>();
    public final Map<Integer, int[]> classInterfaces = new LinkedHashMap<>();
    public final Map<Integer, int[]> classConstantPoolReferences = new LinkedHashMap<>(); // pairs

    public SnapshotFileWriter() {
        for (int i = 0; i < TABLE_COUNT; i++) {
            tables.add(new ArrayList<>());
            modifiedTables.add(new ArrayList<>());
        }
        header.put("header", "Corvane Java Profiler snapshot, https://corvane.example/\n");
        header.put("snapshot_version", "90");
        header.put("created_by_version", "Corvane Java Profiler 2019.8-b109");
        header.put("agent_version", "Corvane Java Profiler 2019.8-b109");
        header.put("platform", "linux-x86-64");
        header.put("session_id", "123456789");
        header.put("session_name", "TestApp");
        header.put("snapshot_flags", Integer.toString(0x200 | 0x8000));
        header.put("creation_time_ms", Long.toString(CREATION_TIME_MS));
        header.put("sizeof_pointer", "8");
        header.put("oid_count", String.format("%32d", 0).replace(' ', '0'));
    }

    public void row(int slot, int index, int stamp, Object... columns) {
        tables.get(slot).add(new Row(index, stamp, columns));
    }

    public void modifiedRow(int slot, int index, int stamp, Object... columns) {
        modifiedTables.get(slot).add(new Row(index, stamp, columns));
    }

    public byte[] toBytes() {
        try {
            ByteArrayOutputStream bytes = new ByteArrayOutputStream();
            DataOutputStream out = new DataOutputStream(bytes);
            byte[] magic = new byte[19];
            System.arraycopy("CORVANE_FILE_60000".getBytes(StandardCharsets.US_ASCII), 0, magic, 0, 18);
            out.write(magic);
            out.writeInt(4);  // the format revision
            out.writeLong(CREATION_TIME_MS);
            record(out, 0x25, headerBlock());
            record(out, 0x25, tablesBlock(tables));
            if ((Integer.parseInt(header.getOrDefault("snapshot_flags", "0")) & 1) != 0) {
                for (Map.Entry<Integer, String> string : heapStrings.entrySet()) {
                    ByteArrayOutputStream body = new ByteArrayOutputStream();
                    DataOutputStream b = new DataOutputStream(body);
                    b.writeInt(string.getKey());
                    b.write(string.getValue().getBytes(StandardCharsets.UTF_8));
                    record(out, 0x01, body.toByteArray());
                }
                for (int[] heapClass : heapClasses) {
                    ByteArrayOutputStream body = new ByteArrayOutputStream();
                    DataOutputStream b = new DataOutputStream(body);
                    b.writeInt(heapClass[0]);
                    b.writeInt(heapClass[1]);
                    b.writeInt(0);
                    b.writeInt(heapClass[2]);
                    record(out, 0x02, body.toByteArray());
                }
                for (byte[] segment : heapSegments) {
                    record(out, 0x1C, segment);
                }
                record(out, 0x2C, new byte[0]);
                record(out, 0x25, tablesBlock(modifiedTables));
                record(out, 0x25, classReferencesBlock());
            }
            out.flush();
            return bytes.toByteArray();
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    public Path writeTo(Path file) {
        try {
            Files.write(file, toBytes());
            return file;
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    private static void record(DataOutputStream out, int tag, byte[] body) throws IOException {
        out.writeByte(tag);
        out.writeInt(0);
        out.writeInt(body.length);
        out.write(body);
    }

    private byte[] headerBlock() throws IOException {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        DataOutputStream out = new DataOutputStream(bytes);
        out.writeByte(1);
        out.writeInt(header.size());
        for (Map.Entry<String, String> property : header.entrySet()) {
            string(out, property.getKey());
            string(out, property.getValue());
        }
        return bytes.toByteArray();
    }

    private static byte[] tablesBlock(List<List<Row>> rowsBySlot) throws IOException {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        DataOutputStream out = new DataOutputStream(bytes);
        for (int slot = 0; slot < TABLE_COUNT; slot++) {
            out.writeByte(2);
            out.writeInt(slot);
            List<Row> rows = new ArrayList<>(rowsBySlot.get(slot));
            rows.sort((a, b) -> Integer.compare(a.index(), b.index()));
            out.writeInt(rows.size());
            for (Row row : rows) {
                out.writeInt(row.index());
                out.writeInt(row.stamp());
                if (row.stamp() > 0) {
                    for (Object column : row.columns()) {
                        column(out, column);
                    }
                }
            }
        }
        return bytes.toByteArray();
    }

    private byte[] classReferencesBlock() throws IOException {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        DataOutputStream out = new DataOutputStream(bytes);
        for (Map.Entry<Integer, int[]> refs : classConstantPoolReferences.entrySet()) {
            out.writeByte(9);
            out.writeInt(refs.getKey());
            out.writeInt(refs.getValue().length / 2);
            for (int value : refs.getValue()) {
                out.writeInt(value);
            }
        }
        for (Map.Entry<Integer, int[]> interfaces : classInterfaces.entrySet()) {
            out.writeByte(8);
            out.writeInt(interfaces.getKey());
            out.writeInt(interfaces.getValue().length);
            for (int value : interfaces.getValue()) {
                out.writeInt(value);
            }
        }
        return bytes.toByteArray();
    }

    private static void column(DataOutputStream out, Object column) throws IOException {
        if (column instanceof Integer) {
            out.writeInt((Integer) column);
        } else if (column instanceof Long) {
            out.writeLong((Long) column);
        } else if (column instanceof int[]) {
            for (int value : (int[]) column) {
                out.writeInt(value);
            }
        } else if (column == null || column instanceof String) {
            string(out, (String) column);
        } else {
            throw new IllegalArgumentException("column of type " + column.getClass());
        }
    }

    private static void string(DataOutputStream out, String text) throws IOException {
        if (text == null) {
            out.writeInt(-1);
            return;
        }
        byte[] bytes = text.getBytes(StandardCharsets.UTF_8);
        out.writeInt(bytes.length);
        out.write(bytes);
    }
}
