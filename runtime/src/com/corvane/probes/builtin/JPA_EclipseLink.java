package com.corvane.probes.builtin;

import com.corvane.probes.InstanceOf;
import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/** EclipseLink through JPA: see JpaOperations. */
public final class JPA_EclipseLink {
    static final String PROVIDER = "EclipseLink";

    private JPA_EclipseLink() {
    }

    @MethodPattern({"org.eclipse.persistence.*:find(*)", "org.eclipse.persistence.*:persist(*)", "org.eclipse.persistence.*:merge(*)", "org.eclipse.persistence.*:remove(*)", "org.eclipse.persistence.*:flush()", "org.eclipse.persistence.*:refresh(*)",
            "org.eclipse.persistence.*:getReference(*)", "org.eclipse.persistence.*:lock(*)", "org.eclipse.persistence.*:detach(*)"})
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

    @MethodPattern({"org.eclipse.persistence.*:createQuery(java.lang.String*)", "org.eclipse.persistence.*:createNamedQuery(java.lang.String*)",
            "org.eclipse.persistence.*:createNativeQuery(java.lang.String*)"})
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

    @MethodPattern({"org.eclipse.persistence.*:getResultList()", "org.eclipse.persistence.*:getSingleResult()", "org.eclipse.persistence.*:executeUpdate()"})
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

    @MethodPattern({"org.eclipse.persistence.*:begin()", "org.eclipse.persistence.*:commit()", "org.eclipse.persistence.*:rollback()"})
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
