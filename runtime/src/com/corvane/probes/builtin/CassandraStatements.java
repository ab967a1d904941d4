package com.corvane.probes.builtin;

/** The table "Cassandra Statements" of the probes Cassandra and CassandraLW. */
final class CassandraStatements {
    static final Operations STATEMENTS = new Operations("Cassandra Statements", "Statement", "Keyspace");

    private CassandraStatements() {
    }

    /** A statement executed: its text, whether simple or bound to a prepared one, in either driver generation. */
    static void entered(String operation, Object statement, boolean full) {
        Object text = ProbeSupport.call(statement, "getQueryString");
        if (text == null) {
            text = ProbeSupport.call(statement, "getQuery");
        }
        if (text == null) {
            Object prepared = ProbeSupport.call(statement, "preparedStatement");
            if (prepared == null) {
                prepared = ProbeSupport.call(statement, "getPreparedStatement");
            }
            text = ProbeSupport.call(prepared, "getQueryString");
            if (text == null) {
                text = ProbeSupport.call(prepared, "getQuery");
            }
        }
        if (text == null && statement instanceof String) {
            text = statement;
        }
        STATEMENTS.entered(operation, text, full ? ProbeSupport.call(statement, "getKeyspace") : null, full);
    }
}
