package com.corvane.probes.builtin;

import com.corvane.probes.ObjectMap;
import com.corvane.probes.Table;
import java.lang.ref.WeakReference;

/**
 * The rows of a table of streams (files, sockets): a row from the opening of
 * a stream to its closing, naming what it reads or writes. The light probes
 * open and close rows only; the full ones also count the bytes, calls and
 * time of the stream's reads and writes, which go into the row at its close.
 * A stream opened by both finds its row already there.
 */
final class StreamRows {
    private static final int READ_BYTES = 0;
    private static final int WRITTEN_BYTES = 1;
    private static final int READS = 2;
    private static final int WRITES = 3;
    private static final int READ_NS = 4;
    private static final int WRITE_NS = 5;

    final Table myTable;
    private final Table.StringColumn myName;
    private final Table.StringColumn myAccess;
    private final Table.LongColumn myReadBytes;
    private final Table.LongColumn myWrittenBytes;
    private final Table.IntColumn myReads;
    private final Table.IntColumn myWrites;
    private final Table.LongColumn myReadNs;
    private final Table.LongColumn myWriteNs;
    private final ObjectMap myRows = new ObjectMap();
    private final ThreadLocal<WeakReference<Throwable>> myLastFailure = new ThreadLocal<WeakReference<Throwable>>();
    private final WeakObjects<long[]> myCounters = new WeakObjects<long[]>();

    StreamRows(String table, String name) {
        myTable = new Table(table, true);
        myName = myTable.stringColumn(name);
        myAccess = myTable.stringColumn("Access");
        myReadBytes = myTable.longColumn("Read bytes");
        myWrittenBytes = myTable.longColumn("Written bytes");
        myReads = myTable.intColumn("Reads");
        myWrites = myTable.intColumn("Writes");
        myReadNs = myTable.longColumn("Read time ns");
        myWriteNs = myTable.longColumn("Write time ns");
    }

    /** A stream opened; with {@code counted} its reads and writes are counted. */
    void open(Object stream, Object name, String access, boolean counted) {
        try {
            if (stream == null) {
                return;
            }
            if (myRows.get(stream) == 0) {
                int row = myTable.createRow();
                if (row == 0) {
                    // No row (the table is full): nothing to count either.
                    return;
                }
                myName.set(row, ProbeSupport.text(name));
                myAccess.set(row, access);
                myRows.put(stream, row);
            }
            if (counted) {
                myCounters.putIfAbsent(stream, new long[6]);
            }
        } catch (Throwable e) {
            // the program's stream stands
        }
    }

    /**
     * An opening that failed: a row of no length with the error. The light
     * and the full probe both see the failure; the second finds it told.
     */
    void failed(Object name, String access, Throwable error) {
        try {
            WeakReference<Throwable> last = myLastFailure.get();
            if (error != null && last != null && last.get() == error) {
                return;
            }
            myLastFailure.set(new WeakReference<Throwable>(error));
            int row = myTable.createRow();
            myName.set(row, ProbeSupport.text(name));
            myAccess.set(row, access);
            myTable.close(row, error);
        } catch (Throwable e) {
            // the program's error stands
        }
    }

    void close(Object stream) {
        try {
            int row = myRows.remove(stream);
            if (row == 0) {
                return;
            }
            long[] c = myCounters.remove(stream);
            if (c != null) {
                myReadBytes.set(row, c[READ_BYTES]);
                myWrittenBytes.set(row, c[WRITTEN_BYTES]);
                myReads.set(row, (int) c[READS]);
                myWrites.set(row, (int) c[WRITES]);
                myReadNs.set(row, c[READ_NS]);
                myWriteNs.set(row, c[WRITE_NS]);
            }
            myTable.close(row);
        } catch (Throwable e) {
            // the program's close stands
        }
    }

    /** A read of {@code bytes} (none at the end of the stream) that took from {@code startNs} to now. */
    void read(Object stream, long bytes, long startNs) {
        add(stream, READ_BYTES, READS, READ_NS, bytes, startNs);
    }

    void written(Object stream, long bytes, long startNs) {
        add(stream, WRITTEN_BYTES, WRITES, WRITE_NS, bytes, startNs);
    }

    private void add(Object stream, int bytesAt, int callsAt, int timeAt, long bytes, long startNs) {
        long[] c = stream == null ? null : myCounters.get(stream);
        if (c == null) {
            return;
        }
        long ns = System.nanoTime() - startNs;
        synchronized (c) {
            if (bytes > 0) {
                c[bytesAt] += bytes;
            }
            c[callsAt]++;
            c[timeAt] += ns;
        }
    }
}
