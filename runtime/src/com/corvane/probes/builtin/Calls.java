package com.corvane.probes.builtin;

import com.corvane.probes.Table;

/**
 * A table of calls: a row from the entry of a call to its end, closed with
 * the error of a call that fails. The probes that record one row a call
 * (lookups, waits, dispatches, tests) use it.
 */
final class Calls {
    final Table myTable;
    private final Table.StringColumn myName;

    Calls(String table, String name) {
        myTable = new Table(table, true);
        myName = myTable.stringColumn(name);
    }

    /** A row for a call of {@code name}; 0 if none could be made. */
    int enter(Object name) {
        try {
            int row = myTable.createRow();
            if (row != 0) {
                myName.set(row, ProbeSupport.text(name));
            }
            return row;
        } catch (Throwable e) {
            return 0;
        }
    }

    /**
     * The outermost of nested calls of this table on this thread gets a row
     * (see {@link Nesting}); the row, or 0 for an inner call.
     */
    int enterOuter(Nesting nesting, Object name) {
        if (!nesting.enter()) {
            return 0;
        }
        int row = enter(name);
        nesting.setRow(row);
        return row;
    }

    /** Leaves a call entered with {@link #enterOuter}; the outermost closes its row. */
    void exitOuter(Nesting nesting, Throwable thrown) {
        int row = nesting.exitRow();
        if (row != 0) {
            exit(row, thrown);
        }
    }

    void exit(int row, Throwable thrown) {
        try {
            myTable.close(row, thrown);
        } catch (Throwable e) {
            // the program's call stands
        }
    }
}
