package com.corvane.probes;

import com.corvane.runtime.Callback;
import java.util.ArrayList;
import java.util.List;

/**
 * An event table of a probe: its rows hold the columns the probe declares,
 * plus the time a row was made, the thread and the place in the program, and
 * for a table with durations the time it was closed and the error of a call
 * that failed. Declare the columns first; the table comes into being with
 * its first row. Rows are plain ints, 0 meaning no row (over the row limit,
 * or no agent): every method takes 0 and does nothing with it.
 *
 * <pre>
 * static final Table REQUESTS = new Table("Requests", true);
 * static final Table.StringColumn URI = REQUESTS.stringColumn("URI");
 *
 * int row = REQUESTS.createRow();
 * URI.set(row, uri);
 * REQUESTS.close(row);
 * </pre>
 */
public final class Table {
    private final String myName;
    private final boolean myDuration;
    private final List<String> myColumnLines = new ArrayList<String>();
    private Table myMaster;
    private int myMinimumDurationMs;
    private volatile int myId;

    /** A table; with {@code duration} its rows are closed and have an end time and an error. */
    public Table(String name, boolean duration) {
        if (name == null || name.isEmpty() || name.indexOf('\n') >= 0) {
            throw new IllegalArgumentException("a table needs a name of one line");
        }
        myName = name;
        myDuration = duration;
        add("uptime_ns", 1);
        if (duration) {
            add("uptime_ns.end", 1);
        }
        add("thread", 0);
        add("frame", 0);
    }

    private synchronized int add(String name, int type) {
        if (myId != 0) {
            throw new IllegalStateException("table " + myName + " is in use: its columns are fixed");
        }
        myColumnLines.add(name + "\n" + type + "\n");
        return myColumnLines.size() - 1;
    }

    // A column of the probe's own; the names that the agent fills are not for it.
    private int addOwn(String name, int type) {
        if (name == null || name.isEmpty() || name.indexOf('\n') >= 0 || name.equals("uptime_ns")
                || name.equals("uptime_ns.end") || name.equals("thread") || name.equals("frame")
                || name.equals("exception_str")) {
            throw new IllegalArgumentException("table " + myName + ": \"" + name + "\" cannot name a column");
        }
        return add(name, type);
    }

    public IntColumn intColumn(String name) {
        return new IntColumn(this, addOwn(name, 0));
    }

    public LongColumn longColumn(String name) {
        return new LongColumn(this, addOwn(name, 1));
    }

    public StringColumn stringColumn(String name) {
        return new StringColumn(this, addOwn(name, 2));
    }

    /**
     * Makes this table depend on {@code master}: each row names a row of the
     * master, and the two count together against the row limit.
     */
    public IntColumn dependsOn(Table master) {
        myMaster = master;
        return new IntColumn(this, add(String.valueOf(master.id()), 3));
    }

    /** Rows closed sooner than this are dropped. */
    public synchronized void setMinimumDuration(int ms) {
        myMinimumDurationMs = ms;
        if (myId > 0) {
            Callback.setMinimumRecordedLastingEventTime(myId, ms);
        }
    }

    public String getName() {
        return myName;
    }

    /** The table's id, made on first use; negative when the agent refused it. */
    public int id() {
        int id = myId;
        return id != 0 ? id : create();
    }

    private synchronized int create() {
        if (myId == 0) {
            StringBuilder description = new StringBuilder(myName).append('\n');
            description.append(myColumnLines.size() + (myDuration ? 1 : 0)).append('\n');
            for (String line : myColumnLines) {
                description.append(line);
            }
            if (myDuration) {
                description.append("exception_str\n2\n");
            }
            int id = Callback.createEventTable(myName, description.toString());
            if (id > 0 && myMinimumDurationMs > 0) {
                Callback.setMinimumRecordedLastingEventTime(id, myMinimumDurationMs);
            }
            myId = id;
        }
        return myId;
    }

    /** A new row, made now by this thread at its present place; 0 for none. */
    public int createRow() {
        int id = id();
        return id > 0 ? Callback.createEventTableRow(id) : 0;
    }

    /** Closes a row of a table with durations: its end time is now. */
    public void close(int row) {
        if (row != 0) {
            Callback.closeEventTableRow(myId, row, false, null);
        }
    }

    /** Closes a row whose call failed, with the error's text. */
    public void close(int row, Throwable error) {
        if (row != 0) {
            Callback.closeEventTableRow(myId, row, false, error == null ? null : error.toString());
        }
    }

    public void delete(int row) {
        if (row != 0) {
            Callback.deleteEventTableRow(myId, row);
        }
    }

    /** A column of the table, by its place among the columns. */
    public abstract static class Column {
        final Table myTable;
        final int myIndex;

        Column(Table table, int index) {
            myTable = table;
            myIndex = index;
        }
    }

    /** A column of ints, or of the rows of a master table. */
    public static final class IntColumn extends Column {
        IntColumn(Table table, int index) {
            super(table, index);
        }

        public void set(int row, int value) {
            if (row != 0) {
                Callback.setEventTableInt32Column(myTable.myId, row, myIndex, value);
            }
        }
    }

    public static final class LongColumn extends Column {
        LongColumn(Table table, int index) {
            super(table, index);
        }

        public void set(int row, long value) {
            if (row != 0) {
                Callback.setEventTableLongColumn(myTable.myId, row, myIndex, value);
            }
        }
    }

    public static final class StringColumn extends Column {
        StringColumn(Table table, int index) {
            super(table, index);
        }

        public void set(int row, String value) {
            if (row != 0) {
                Callback.setEventTableStringColumn(myTable.myId, row, myIndex, value);
            }
        }
    }
}
