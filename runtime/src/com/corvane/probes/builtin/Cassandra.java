package com.corvane.probes.builtin;

import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.ThrownException;

/**
 * Cassandra through the DataStax Java driver: as CassandraLW, and each row
 * also holds the keyspace of the statement.
 */
@MethodPattern({"com.datastax.driver.core.AbstractSession:execute*(*)", "com.datastax.driver.core.SessionManager:execute*(*)",
        "com.datastax.oss.driver.internal.core.session.DefaultSession:execute(*)"})
public final class Cassandra {
    private Cassandra() {
    }

    public static void onEnter(@MethodName String method, @Param(1) Object statement) {
        CassandraStatements.entered(method, statement, true);
    }

    public static void onExit(@ThrownException Throwable thrown) {
        CassandraStatements.STATEMENTS.exited(thrown);
    }
}
