package com.corvane.snapshot;

import java.io.DataInputStream;
import java.io.EOFException;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;

/**
 * The table stream of a live agent: for each table of the mask, in slot
 * order, the slot and the rows newer than the stamp asked for; then -1. The
 * agent writes it least significant byte first.
 */
public final class TableStreamReader implements RowSource {
    /** No table of a live agent comes near this; a larger count is a broken stream. */
    private static final long MAX_ANNOUNCED_BYTES = 1L << 30;

    private final DataInputStream myIn;
    private long myPosition;

    private TableStreamReader(InputStream in) {
        myIn = new DataInputStream(in);
    }

    /** Reads one stream of the tables in {@code mask} into {@code tables}. */
    public static void read(InputStream in, int mask, Tables tables) throws IOException, SnapshotFormatException {
        TableStreamReader reader = new TableStreamReader(in);
        int previous = -1;
        for (;;) {
            long at = reader.position();
            int slot = reader.readInt("a table index");
            if (slot == -1) {
                return;
            }
            if (slot < 0 || slot >= Tables.COUNT || slot <= previous || (mask & (1 << slot)) == 0) {
                throw SnapshotFormatException.corrupt(at, "table index " + slot + " does not belong in the stream");
            }
            previous = slot;
            TableRows.readTable(reader, tables.bySlot(slot), () -> {
            });
        }
    }

    @Override
    public long position() {
        return myPosition;
    }

    private void need(String what) throws SnapshotFormatException {
        throw SnapshotFormatException.corrupt(myPosition, "the stream ends inside " + what);
    }

    @Override
    public int readInt(String what) throws IOException, SnapshotFormatException {
        try {
            int value = Integer.reverseBytes(myIn.readInt());
            myPosition += 4;
            return value;
        } catch (EOFException e) {
            need(what);
            return 0;
        }
    }

    @Override
    public long readLong(String what) throws IOException, SnapshotFormatException {
        try {
            long value = Long.reverseBytes(myIn.readLong());
            myPosition += 8;
            return value;
        } catch (EOFException e) {
            need(what);
            return 0;
        }
    }

    @Override
    public String readString(String what, boolean nullable) throws IOException, SnapshotFormatException {
        long at = myPosition;
        int length = readInt(what + " length");
        if (length == -1 && nullable) {
            return null;
        }
        if (length < 0) {
            throw SnapshotFormatException.corrupt(at, what + " has the negative length " + length);
        }
        requireRoom(length, at, what);
        byte[] bytes = new byte[length];
        try {
            myIn.readFully(bytes);
        } catch (EOFException e) {
            need(what);
        }
        myPosition += length;
        return new String(bytes, StandardCharsets.UTF_8);
    }

    @Override
    public void requireRoom(long bytes, long countAt, String what) throws SnapshotFormatException {
        if (bytes > MAX_ANNOUNCED_BYTES) {
            throw SnapshotFormatException.corrupt(countAt, what + " announces " + bytes + " bytes");
        }
    }
}
