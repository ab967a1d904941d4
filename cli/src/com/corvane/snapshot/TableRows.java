package com.corvane.snapshot;

import com.corvane.snapshot.Rows.AllocInfoRow;
import com.corvane.snapshot.Rows.AllocPointRow;
import com.corvane.snapshot.Rows.CodePointRow;
import com.corvane.snapshot.Rows.CpuRow;
import com.corvane.snapshot.Rows.EventRow;
import com.corvane.snapshot.Rows.ExceptionRow;
import com.corvane.snapshot.Rows.FrameRow;
import com.corvane.snapshot.Rows.GenerationRow;
import com.corvane.snapshot.Rows.InstanceCountRow;
import com.corvane.snapshot.Rows.MethodRow;
import com.corvane.snapshot.Rows.MonitorRow;
import com.corvane.snapshot.Rows.PropertyRow;
import com.corvane.snapshot.Rows.SnapshotRow;
import com.corvane.snapshot.Rows.TelemetryRow;
import com.corvane.snapshot.Rows.ThreadFrameRow;
import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.snapshot.Rows.ThreadState;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;

/**
 * The rows of the fixed tables as the table stream writes them, the same in
 * a snapshot file and on a live connection: each table's layout in one place.
 */
final class TableRows {
    private TableRows() {
    }

    /** A table's rows: count, then index, stamp and (for a live row) the row's fields, in index order. */
    @SuppressWarnings("unchecked")
    static <R> void readTable(RowSource in, Table<R> table, Runnable progress)
            throws IOException, SnapshotFormatException {
        String name = "table \"" + table.name() + "\"";
        long countAt = in.position();
        int count = in.readInt("the row count of " + name);
        if (count < 0) {
            throw SnapshotFormatException.corrupt(countAt, "the row count " + count + " of " + name + " is negative");
        }
        // Row 0 is not handed out, but it can be written: the root of the frame tree is stamped whenever a
        // child is added to it.
        long previous = -1;
        for (int i = 0; i < count; i++) {
            long rowAt = in.position();
            int index = in.readInt("the index of row " + i + " of " + name);
            if (index <= previous) {
                throw SnapshotFormatException.corrupt(rowAt, "row " + i + " of " + name + " has the index " + index
                        + (index < 0 ? ", below 0" : ", not above the previous index " + previous));
            }
            previous = index;
            String what = "row " + index + " of " + name;
            long stampAt = in.position();
            int stamp = in.readInt("the stamp of " + what);
            if (stamp == 0) {
                throw SnapshotFormatException.corrupt(stampAt, what + " has the stamp 0, which marks an absent row");
            }
            R row = null;
            if (stamp > 0) {
                row = (R) readRow(in, table.slot(), what);
            }
            table.put(new Table.Entry<>(index, stamp, row));
            if ((i & 0xFFF) == 0xFFF) {
                progress.run();
            }
        }
    }

    private static Object readRow(RowSource in, int slot, String what) throws IOException, SnapshotFormatException {
        switch (slot) {
            case Tables.STRING:
                return in.readString("the text of " + what, true);
            case Tables.THREAD:
                return new ThreadRow(in.readInt(what), in.readInt(what), in.readInt(what), in.readInt(what),
                        in.readLong(what), in.readInt(what), in.readLong(what), in.readLong(what));
            case Tables.METHOD:
                return new MethodRow(in.readInt(what), in.readInt(what), in.readInt(what), in.readInt(what),
                        in.readInt(what), in.readInt(what));
            case Tables.THREAD_FRAME:
                return new ThreadFrameRow(in.readInt(what), in.readInt(what));
            case Tables.MONITOR:
                return new MonitorRow(in.readInt(what), in.readInt(what), in.readInt(what), in.readInt(what),
                        in.readLong(what), in.readLong(what));
            case Tables.CPU_PROFILING:
                return new CpuRow(in.readLong(what), in.readLong(what));
            case Tables.INSTANCE_COUNT:
                return new InstanceCountRow(in.readInt(what), in.readInt(what), in.readLong(what));
            case Tables.FRAME:
                return new FrameRow(in.readInt(what), in.readInt(what), in.readInt(what), in.readInt(what));
            case Tables.TABLE_GENERATION:
                return null;
            case Tables.SNAPSHOT:
                return new SnapshotRow(in.readInt(what), in.readLong(what));
            case Tables.ALLOC_INFO:
                return new AllocInfoRow(in.readLong(what), in.readLong(what), in.readLong(what));
            case Tables.GENERATION:
                return new GenerationRow(in.readInt(what), in.readLong(what));
            case Tables.PROPERTIES:
                return new PropertyRow(in.readInt(what), in.readInt(what));
            case Tables.TELE:
                return readTelemetryRow(in, what);
            case Tables.EXCEPTION:
                return new ExceptionRow(in.readInt(what), in.readInt(what), in.readInt(what), in.readInt(what),
                        in.readLong(what));
            case Tables.EVENT:
                return readEventRow(in, what);
            case Tables.CODE_POINT:
                return new CodePointRow(in.readInt(what), in.readInt(what));
            case Tables.CALL_COUNT:
            case Tables.ALLOC_OBJECT_COUNT:
                return in.readLong(what);
            case Tables.ALLOC_POINT:
                return new AllocPointRow(in.readInt(what), in.readInt(what));
            default:
                throw new IllegalArgumentException("slot " + slot);
        }
    }

    private static TelemetryRow readTelemetryRow(RowSource in, String what)
            throws IOException, SnapshotFormatException {
        long pairsAt = in.position();
        int pairs = in.readInt("the custom counter count of " + what);
        int states = in.readInt("the thread state count of " + what);
        if (pairs < 0) {
            throw SnapshotFormatException.corrupt(pairsAt, what + " has the negative custom counter count " + pairs);
        }
        if (states < -1) {
            throw SnapshotFormatException.corrupt(pairsAt + 4, what + " has the thread state count " + states);
        }
        in.requireRoom((long) pairs * 8 + 48 + Math.max(0, states) * 20L, pairsAt, what);
        int[] values = new int[12];
        for (int i = 0; i < 12; i++) {
            values[i] = in.readInt("telemetry value " + i + " of " + what);
        }
        int[] customPairs = new int[pairs * 2];
        for (int i = 0; i < customPairs.length; i++) {
            customPairs[i] = in.readInt("a custom counter of " + what);
        }
        List<ThreadState> threadStates = null;
        if (states >= 0) {
            threadStates = new ArrayList<>(states);
            for (int i = 0; i < states; i++) {
                String stateWhat = "thread state " + i + " of " + what;
                threadStates.add(new ThreadState(in.readInt(stateWhat), in.readInt(stateWhat),
                        in.readInt(stateWhat), in.readLong(stateWhat)));
            }
        }
        return new TelemetryRow(values, customPairs, threadStates);
    }

    private static EventRow readEventRow(RowSource in, String what) throws IOException, SnapshotFormatException {
        int tableId = in.readInt("the table id of " + what);
        int eventId = in.readInt("the event id of " + what);
        long countAt = in.position();
        int count = in.readInt("the value count of " + what);
        if (count < 0) {
            throw SnapshotFormatException.corrupt(countAt, what + " has the negative value count " + count);
        }
        in.requireRoom(count * 4L, countAt + 4, what);
        int[] values = new int[count];
        for (int i = 0; i < count; i++) {
            values[i] = in.readInt("value " + i + " of " + what);
        }
        return new EventRow(tableId, eventId, values);
    }
}
