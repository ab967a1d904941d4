package com.corvane.probes.builtin;

import com.corvane.probes.InstanceOf;
import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/** Hibernate through JPA and through its own sessions: see JpaOperations. */
public final class JPA_Hibernate {
    static final String PROVIDER = "Hibernate";

    private JPA_Hibernate() {
    }

    @MethodPattern({"org.hibernate.*:find(*)", "org.hibernate.*:persist(*)", "org.hibernate.*:merge(*)", "org.hibernate.*:remove(*)", "org.hibernate.*:flush()", "org.hibernate.*:refresh(*)",
            "org.hibernate.*:getReference(*)", "org.hibernate.*:lock(*)", "org.hibernate.*:detach(*)"})
    @InstanceOf("javax.persistence.EntityManager")
    public static final class Manager {
        private Manager() {
        }

        public static void onEnter(@MethodName String method, @Param(1) Object argument) {
            JpaOperations.entered(PROVIDER, method, argument);
        }

        public static void onExit(@ReturnValue Object result, @ThrownException Throwable thrown) {
            JpaOperations.exited(result, thrown);
        }
    }

    @MethodPattern({"org.hibernate.*:createQuery(java.lang.String*)", "org.hibernate.*:createNamedQuery(java.lang.String*)",
            "org.hibernate.*:createNativeQuery(java.lang.String*)"})
    @InstanceOf("javax.persistence.EntityManager")
    public static final class Create {
        private Create() {
        }

        public static void onEnter() {
            JpaOperations.CREATING.enter();
        }

        public static void onExit(@MethodName String method, @Param(1) Object text, @ReturnValue Object query,
                @ThrownException Throwable thrown) {
            JpaOperations.queryCreated(PROVIDER, method, query, text, thrown);
        }
    }

    @MethodPattern({"org.hibernate.*:getResultList()", "org.hibernate.*:getSingleResult()", "org.hibernate.*:executeUpdate()"})
    public static final class Query {
        private Query() {
        }

        // Providers define these in classes above the ones that are queries; the object tells.
        public static boolean onEnter(@This Object query, @MethodName String method) {
            return JpaOperations.queryEntered(PROVIDER, method, query);
        }

        public static void onExit(@OnEnterResult boolean entered, @ReturnValue Object result,
                @ThrownException Throwable thrown) {
            if (entered) {
                JpaOperations.exited(result, thrown);
            }
        }
    }

    @MethodPattern({"org.hibernate.*:begin()", "org.hibernate.*:commit()", "org.hibernate.*:rollback()"})
    @InstanceOf("javax.persistence.EntityTransaction")
    public static final class Transaction {
        private Transaction() {
        }

        public static void onEnter(@MethodName String method) {
            JpaOperations.entered(PROVIDER, method, null);
        }

        public static void onExit(@ThrownException Throwable thrown) {
            JpaOperations.exited(null, thrown);
        }
    }

    /** The operations of Hibernate's own sessions. */
    @MethodPattern({"org.hibernate.*:get(*)", "org.hibernate.*:load(*)", "org.hibernate.*:save(*)",
            "org.hibernate.*:saveOrUpdate(*)", "org.hibernate.*:update(*)", "org.hibernate.*:delete(*)",
            "org.hibernate.*:flush()"})
    @InstanceOf("org.hibernate.Session")
    public static final class Session {
        private Session() {
        }

        public static void onEnter(@MethodName String method, @Param(1) Object argument) {
            JpaOperations.entered(PROVIDER, method, argument);
        }

        public static void onExit(@ReturnValue Object result, @ThrownException Throwable thrown) {
            JpaOperations.exited(result, thrown);
        }
    }

    @MethodPattern({"org.hibernate.*:list()", "org.hibernate.*:uniqueResult()", "org.hibernate.*:executeUpdate()"})
    @InstanceOf("org.hibernate.Query")
    public static final class SessionQuery {
        private SessionQuery() {
        }

        public static boolean onEnter(@This Object query, @MethodName String method) {
            return JpaOperations.queryEntered(PROVIDER, method, query);
        }

        public static void onExit(@OnEnterResult boolean entered, @ReturnValue Object result,
                @ThrownException Throwable thrown) {
            if (entered) {
                JpaOperations.exited(result, thrown);
            }
        }
    }

    @MethodPattern({"org.hibernate.*:createQuery(java.lang.String)", "org.hibernate.*:createSQLQuery(java.lang.String)"})
    @InstanceOf("org.hibernate.Session")
    public static final class SessionCreate {
        private SessionCreate() {
        }

        public static void onEnter() {
            JpaOperations.CREATING.enter();
        }

        public static void onExit(@MethodName String method, @Param(1) Object text, @ReturnValue Object query,
                @ThrownException Throwable thrown) {
            JpaOperations.queryCreated(PROVIDER, method, query, text, thrown);
        }
    }
}
