package com.corvane.probes.builtin;

import com.corvane.probes.Table;

/**
 * A table of operations of a database client, for the probes MongoDB,
 * Cassandra and HBase and their light versions: a row for each operation,
 * with its name, what it works on, its time and the error of one that
 * failed; the full probes add a detail (a filter, a keyspace, a row key).
 * An operation the client carries out through others of its own is one row,
 * and when the light and the full probe are both on, the full one adds its
 * detail to the row that the first one made.
 */
final class Operations {
    private final Calls myCalls;
    private final Table.StringColumn myTarget;
    private final Table.StringColumn myDetail;
    private final Nesting myNesting = new Nesting();

    Operations(String table, String target, String detail) {
        myCalls = new Calls(table, "Operation");
        myTarget = myCalls.myTable.stringColumn(target);
        myDetail = myCalls.myTable.stringColumn(detail);
    }

    void entered(String operation, Object target, Object detail, boolean full) {
        int row = myCalls.enterOuter(myNesting, operation);
        try {
            if (row != 0) {
                myTarget.set(row, ProbeSupport.text(target));
            }
            if (full) {
                myDetail.set(myNesting.getRow(), ProbeSupport.text(detail));
            }
        } catch (Throwable e) {
            // the program's operation stands
        }
    }

    void exited(Throwable thrown) {
        myCalls.exitOuter(myNesting, thrown);
    }
}
