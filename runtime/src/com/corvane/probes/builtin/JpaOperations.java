package com.corvane.probes.builtin;

import com.corvane.probes.Table;
import java.util.Collection;

/**
 * The table "JPA Operations" of the probes JPA_Hibernate, JPA_EclipseLink,
 * JPA_OpenJPA and JPA_DataNucleus: a row for each operation of an entity
 * manager (find, persist, merge, remove, flush...), each run of a query and
 * each step of a transaction, with the provider, the entity class or the
 * query text, the number of results of a query, the time and the error of an
 * operation that failed. An operation that the provider carries out through
 * others of its own is one row.
 */
final class JpaOperations {
    static final Calls OPERATIONS = new Calls("JPA Operations", "Operation");
    static final Table.StringColumn PROVIDER = OPERATIONS.myTable.stringColumn("Provider");
    static final Table.StringColumn TARGET = OPERATIONS.myTable.stringColumn("Target");
    static final Table.IntColumn RESULTS = OPERATIONS.myTable.intColumn("Results");
    static final Nesting NESTING = new Nesting();
    // Providers make a query through their own makers of queries.
    static final Nesting CREATING = new Nesting();
    // Query objects keep identity equality, so a weak map is an identity map here.
    private static final WeakObjects<String> ourQueries = new WeakObjects<String>();

    private JpaOperations() {
    }

    /** An operation of an entity manager or a transaction on {@code argument}: a class, an entity, an id. */
    static void entered(String provider, String operation, Object argument) {
        String target = null;
        if (argument instanceof Class) {
            target = ((Class<?>) argument).getName();
        } else if (argument instanceof String) {
            target = (String) argument;
        } else if (argument != null) {
            target = argument.getClass().getName();
        }
        enter(provider, operation, target);
    }

    /** A query run; false, and no row, for an object that is no query of the persistence API. */
    static boolean queryEntered(String provider, String operation, Object query) {
        if (!ProbeSupport.isA(query, "javax.persistence.Query") && !ProbeSupport.isA(query, "org.hibernate.Query")) {
            return false;
        }
        enter(provider, operation, ourQueries.get(query));
        return true;
    }

    private static void enter(String provider, String operation, String target) {
        int row = OPERATIONS.enterOuter(NESTING, operation);
        if (row == 0) {
            return;
        }
        try {
            PROVIDER.set(row, provider);
            TARGET.set(row, ProbeSupport.text(target));
        } catch (Throwable e) {
            // the program's operation stands
        }
    }

    static void exited(Object result, Throwable thrown) {
        int row = NESTING.getRow();
        try {
            if (result instanceof Collection && row != 0) {
                RESULTS.set(row, ((Collection<?>) result).size());
            }
        } catch (Throwable e) {
            // the program's result stands
        }
        OPERATIONS.exitOuter(NESTING, thrown);
    }

    /** A query made from a text, to be named by it when it runs; one that cannot be made is a row with the error. */
    static void queryCreated(String provider, String operation, Object query, Object text, Throwable thrown) {
        boolean outermost = CREATING.exit();
        if (thrown != null) {
            if (!outermost) {
                return;
            }
            entered(provider, operation, text);
            exited(null, thrown);
        } else if (query != null && text instanceof String) {
            ourQueries.put(query, (String) text);
        }
    }
}
