package com.corvane.probes.builtin;

import com.corvane.probes.InstanceOf;
import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/** DataNucleus through JPA: see JpaOperations. */
public final class JPA_DataNucleus {
    static final String PROVIDER = "DataNucleus";

    private JPA_DataNucleus() {
    }

    @MethodPattern({"org.datanucleus.*:find(*)", "org.datanucleus.*:persist(*)", "org.datanucleus.*:merge(*)", "org.datanucleus.*:remove(*)", "org.datanucleus.*:flush()", "org.datanucleus.*:refresh(*)",
            "org.datanucleus.*:getReference(*)", "org.datanucleus.*:lock(*)", "org.datanucleus.*:detach(*)"})
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

    @MethodPattern({"org.datanucleus.*:createQuery(java.lang.String*)", "org.datanucleus.*:createNamedQuery(java.lang.String*)",
            "org.datanucleus.*:createNativeQuery(java.lang.String*)"})
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

    @MethodPattern({"org.datanucleus.*:getResultList()", "org.datanucleus.*:getSingleResult()", "org.datanucleus.*:executeUpdate()"})
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

    @MethodPattern({"org.datanucleus.*:begin()", "org.datanucleus.*:commit()", "org.datanucleus.*:rollback()"})
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
}
