package com.corvane.probes.builtin;

import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.ThrownException;

/**
 * Cassandra through the DataStax Java driver, light: a row of "Cassandra
 * Statements" for each statement executed, with its text, the time (for an
 * asynchronous execution, the time to hand it over) and the error of one that
 * failed.
 */
@MethodPattern({"com.datastax.driver.core.AbstractSession:execute*(*)", "com.datastax.driver.core.SessionManager:execute*(*)",
        "com.datastax.oss.driver.internal.core.session.DefaultSession:execute(*)"})
public final class CassandraLW {
    private CassandraLW() {
    }

    public static void onEnter(@MethodName String method, @Param(1) Object statement) {
        CassandraStatements.entered(method, statement, false);
    }

    public static void onExit(@ThrownException Throwable thrown) {
        CassandraStatements.STATEMENTS.exited(thrown);
    }
}
