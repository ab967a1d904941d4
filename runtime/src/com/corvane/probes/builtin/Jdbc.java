package com.corvane.probes.builtin;

import com.corvane.probes.Table;

/**
 * The tables of the probes Databases and DatabasesLW: "JDBC Connections",
 * a row for each connection made, as long as it took to make, and its
 * dependent table "JDBC Statements", a row for each execution, commit,
 * rollback and close on the connection.
 * The light probe fills in the SQL, the kind of call, its time, the error of
 * a call that fails and the update count; the full one adds the number of
 * parameters set, the batch size and the rows the program read.
 */
final class Jdbc {
    static final Table CONNECTIONS = new Table("JDBC Connections", true);
    static final Table.StringColumn URL = CONNECTIONS.stringColumn("URL");
    static final Table STATEMENTS = new Table("JDBC Statements", true);
    static final Table.IntColumn CONNECTION = STATEMENTS.dependsOn(CONNECTIONS);
    static final Table.StringColumn SQL = STATEMENTS.stringColumn("SQL");
    static final Table.StringColumn KIND = STATEMENTS.stringColumn("Kind");
    static final Table.IntColumn PARAMETERS = STATEMENTS.intColumn("Parameters");
    static final Table.IntColumn BATCH = STATEMENTS.intColumn("Batch size");
    static final Table.LongColumn ROWS = STATEMENTS.longColumn("Rows");

    // Patterns by class name alone ("*Connection*") also meet classes of the
    // JDK, whose loader cannot see java.sql: the test of the receiver's type
    // would fail there, so they are left out.
    static final String NOT_JDK = "-java.*:*(*)";
    static final String NOT_SUN = "-sun.*:*(*)";
    static final String NOT_COM_SUN = "-com.sun.*:*(*)";
    static final String NOT_JDK_INTERNAL = "-jdk.*:*(*)";

    static final Nesting CONNECTING = new Nesting();
    static final Nesting EXECUTING = new Nesting();
    static final Nesting SETTING = new Nesting();

    /** What is known of a statement: its SQL and connection, and what was set since it last ran. */
    static final class Info {
        final String mySql;
        final int myConnectionRow;
        int myParameters;
        int myBatch;

        Info(String sql, int connectionRow) {
            mySql = sql;
            myConnectionRow = connectionRow;
        }
    }

    // Not the agent's object map: a connection is looked up at each
    // statement and close, and on a fast database the tag lookups and the
    // agent-wide lock of that map cost more than the statement.
    private static final WeakObjects<Integer> ourConnectionRows = new WeakObjects<Integer>();
    private static final WeakObjects<Info> ourStatements = new WeakObjects<Info>();
    private static final WeakObjects<long[]> ourResultSets = new WeakObjects<long[]>();

    private Jdbc() {
    }

    /** A connection made, or a failure to make one; the outermost of nested opens only. */
    static void connected(Object url, Object connection, Throwable thrown) {
        if (!CONNECTING.exit()) {
            return;
        }
        try {
            int row = CONNECTIONS.createRow();
            if (row == 0) {
                return;
            }
            if (url == null && connection != null) {
                url = ProbeSupport.call(ProbeSupport.call(connection, "getMetaData"), "getURL");
            }
            URL.set(row, ProbeSupport.text(url));
            // Closed now: the rows of its statements name it as their master.
            CONNECTIONS.close(row, thrown);
            if (thrown == null && connection != null) {
                ourConnectionRows.put(connection, row);
            }
        } catch (Throwable e) {
            // the program's connection stands
        }
    }

    /** The row of a connection, 0 when it was made before the probe or failed. */
    static int connectionRow(Object connection) {
        try {
            Integer row = connection == null ? null : ourConnectionRows.get(connection);
            return row == null ? 0 : row;
        } catch (Throwable e) {
            // a connection whose hash code fails has no row
            return 0;
        }
    }

    // A closed connection or statement leaves its map at once, so that the
    // weak reference dies young with it instead of being kept, and looked at
    // by each collection, until the collector finds the object gone.

    /** A commit, rollback or close of the connection ended. */
    static void transactionEnded(Object connection, String method, Throwable thrown) {
        executed(null, null, thrown, false);
        if (method.equals("close")) {
            ourConnectionRows.remove(connection);
        }
    }

    static void statementClosed(Object statement) {
        ourStatements.remove(statement);
    }

    /** A statement made by a connection; {@code sql} for a prepared one. */
    static void created(Object connection, Object statement, String sql) {
        try {
            if (statement != null) {
                ourStatements.put(statement, new Info(sql, connectionRow(connection)));
            }
        } catch (Throwable e) {
            // the program's statement stands
        }
    }

    /** A call that executes SQL (or commits, or rolls back) entered; {@code sql} when the call names it. */
    static void executing(Object statement, String kind, Object sql, int connectionRow) {
        if (!EXECUTING.enter()) {
            return;
        }
        try {
            int row = STATEMENTS.createRow();
            EXECUTING.setRow(row);
            if (row == 0) {
                // The table is full: no row, and nothing to look up for one.
                return;
            }
            Info info = statement == null ? null : ourStatements.get(statement);
            if (info != null) {
                connectionRow = info.myConnectionRow;
                if (!(sql instanceof String)) {
                    sql = info.mySql;
                }
            }
            if (connectionRow != 0) {
                CONNECTION.set(row, connectionRow);
            }
            // Columns left unset read as empty: commits and closes have no SQL.
            if (sql instanceof String) {
                SQL.set(row, ProbeSupport.text(sql));
            }
            KIND.set(row, kind);
        } catch (Throwable e) {
            // the program's call stands
        }
    }

    /** The call ends: its update count, or the result set whose rows are to be counted. */
    static void executed(Object statement, Object result, Throwable thrown, boolean countRows) {
        if (countRows) {
            EXECUTING.mark();
        }
        countRows = EXECUTING.isMarked();
        int row = EXECUTING.exitRow();
        if (row == 0) {
            return;
        }
        try {
            Info info = statement == null ? null : ourStatements.get(statement);
            if (info != null) {
                int parameters;
                int batch;
                synchronized (info) {
                    parameters = info.myParameters;
                    batch = info.myBatch;
                    info.myParameters = 0;
                    info.myBatch = 0;
                }
                // Unset columns read as 0.
                if (parameters != 0) {
                    PARAMETERS.set(row, parameters);
                }
                if (batch != 0) {
                    BATCH.set(row, batch);
                }
            }
            long updated = updateCount(result);
            if (updated >= 0) {
                ROWS.set(row, updated);
            } else if (countRows && result != null && !(result instanceof Boolean)) {
                ourResultSets.put(result, new long[] {row, 0});
            }
            STATEMENTS.close(row, thrown);
        } catch (Throwable e) {
            // the program's call stands
        }
    }

    // An update count, the sum of a batch's counts, or -1 for none.
    private static long updateCount(Object result) {
        if (result instanceof Integer || result instanceof Long) {
            return ((Number) result).longValue();
        }
        long sum = -1;
        if (result instanceof int[]) {
            sum = 0;
            for (int n : (int[]) result) {
                sum += Math.max(n, 0);
            }
        } else if (result instanceof long[]) {
            sum = 0;
            for (long n : (long[]) result) {
                sum += Math.max(n, 0);
            }
        }
        return sum;
    }

    /**
     * A parameter set or a batch entry added to a prepared statement; drivers
     * set parameters through setters of their own, so the outermost counts.
     */
    static void parameterSet(Object statement, boolean batchEntry) {
        if (!SETTING.exit()) {
            return;
        }
        Info info = statement == null ? null : ourStatements.get(statement);
        if (info != null) {
            synchronized (info) {
                if (batchEntry) {
                    info.myBatch++;
                } else {
                    info.myParameters++;
                }
            }
        }
    }

    /** The cursor of a result set moved; the last move or its close writes the count. */
    static void resultRow(Object resultSet, boolean more) {
        long[] counted = resultSet == null ? null : ourResultSets.get(resultSet);
        if (counted == null) {
            return;
        }
        try {
            synchronized (counted) {
                if (more) {
                    counted[1]++;
                    return;
                }
            }
            ourResultSets.remove(resultSet);
            ROWS.set((int) counted[0], counted[1]);
        } catch (Throwable e) {
            // the program's result set stands
        }
    }
}
