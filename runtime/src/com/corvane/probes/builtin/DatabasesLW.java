package com.corvane.probes.builtin;

import com.corvane.probes.InstanceOf;
import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * Databases through JDBC, light: each connection made, with its URL and the
 * time it took, and as its dependent rows each execution with its SQL, kind
 * and time, the update count, each commit, rollback and close, and the error
 * of a call that failed. The probe Databases adds parameters, batch
 * sizes and rows read.
 */
public final class DatabasesLW {
    private DatabasesLW() {
    }

    @MethodPattern({"*Driver*:connect(java.lang.String, java.util.Properties) java.sql.Connection",
            Jdbc.NOT_JDK, Jdbc.NOT_SUN, Jdbc.NOT_COM_SUN, Jdbc.NOT_JDK_INTERNAL})
    @InstanceOf("java.sql.Driver")
    public static final class Connect {
        private Connect() {
        }

        public static void onEnter() {
            Jdbc.CONNECTING.enter();
        }

        public static void onExit(@Param(1) String url, @ReturnValue Object connection, @ThrownException Throwable thrown) {
            Jdbc.connected(url, connection, thrown);
        }
    }

    @MethodPattern({"*DataSource*:getConnection(*) java.sql.Connection",
            Jdbc.NOT_JDK, Jdbc.NOT_SUN, Jdbc.NOT_COM_SUN, Jdbc.NOT_JDK_INTERNAL})
    @InstanceOf("javax.sql.DataSource")
    public static final class DataSourceConnect {
        private DataSourceConnect() {
        }

        public static void onEnter() {
            Jdbc.CONNECTING.enter();
        }

        public static void onExit(@ReturnValue Object connection, @ThrownException Throwable thrown) {
            Jdbc.connected(null, connection, thrown);
        }
    }

    @MethodPattern({"*Connection*:prepareStatement(java.lang.String*)",
            "*Connection*:prepareCall(java.lang.String*)", "*Connection*:createStatement(*)",
            Jdbc.NOT_JDK, Jdbc.NOT_SUN, Jdbc.NOT_COM_SUN, Jdbc.NOT_JDK_INTERNAL})
    @InstanceOf("java.sql.Connection")
    public static final class Create {
        private Create() {
        }

        public static void onReturn(@This Object connection, @Param(1) String sql, @ReturnValue Object statement) {
            Jdbc.created(connection, statement, sql);
        }
    }

    @MethodPattern({"*Connection*:commit()", "*Connection*:rollback(*)", "*Connection*:close()",
            Jdbc.NOT_JDK, Jdbc.NOT_SUN, Jdbc.NOT_COM_SUN, Jdbc.NOT_JDK_INTERNAL})
    @InstanceOf("java.sql.Connection")
    public static final class Transaction {
        private Transaction() {
        }

        public static void onEnter(@This Object connection, @MethodName String method) {
            Jdbc.executing(null, method, null, Jdbc.connectionRow(connection));
        }

        public static void onExit(@This Object connection, @MethodName String method,
                                  @ThrownException Throwable thrown) {
            Jdbc.transactionEnded(connection, method, thrown);
        }
    }

    @MethodPattern({"*Statement*:close()",
            Jdbc.NOT_JDK, Jdbc.NOT_SUN, Jdbc.NOT_COM_SUN, Jdbc.NOT_JDK_INTERNAL})
    @InstanceOf("java.sql.Statement")
    public static final class StatementClose {
        private StatementClose() {
        }

        public static void onReturn(@This Object statement) {
            Jdbc.statementClosed(statement);
        }
    }

    @MethodPattern({"*Statement*:execute*(*)",
            Jdbc.NOT_JDK, Jdbc.NOT_SUN, Jdbc.NOT_COM_SUN, Jdbc.NOT_JDK_INTERNAL})
    @InstanceOf("java.sql.Statement")
    public static final class Execute {
        private Execute() {
        }

        public static void onEnter(@This Object statement, @MethodName String method, @Param(1) Object sql) {
            Jdbc.executing(statement, method, sql, 0);
        }

        public static void onExit(@This Object statement, @ReturnValue Object result, @ThrownException Throwable thrown) {
            Jdbc.executed(statement, result, thrown, false);
        }
    }
}
