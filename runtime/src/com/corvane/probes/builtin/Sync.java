package com.corvane.probes.builtin;

import com.corvane.probes.MethodName;
import com.corvane.probes.Table;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * Waits on the locks and conditions of java.util.concurrent: a row of
 * "Lock Waits" for each lock that had to be waited for (the slow path of a
 * synchronizer, which an uncontended lock never takes) and for each wait on
 * a condition, naming the synchronizer's class and the kind of wait.
 */
@MethodPattern({
        "java.util.concurrent.locks.AbstractQueuedSynchronizer:acquire(java.util.concurrent.locks.AbstractQueuedSynchronizer$Node, *) int",
        "java.util.concurrent.locks.AbstractQueuedSynchronizer$ConditionObject:await*(*)"})
public final class Sync {
    static final Calls WAITS = new Calls("Lock Waits", "Lock");
    static final Table.StringColumn KIND = WAITS.myTable.stringColumn("Kind");
    // A wait on a condition takes the lock again through the slow path: one wait.
    static final Nesting NESTING = new Nesting();

    private Sync() {
    }

    public static void onEnter(@This Object synchronizer, @MethodName String method) {
        int row = WAITS.enterOuter(NESTING, synchronizer == null ? null : synchronizer.getClass().getName());
        try {
            KIND.set(row, method.startsWith("await") ? method : "lock");
        } catch (Throwable e) {
            // the program's wait stands
        }
    }

    public static void onExit(@ThrownException Throwable thrown) {
        WAITS.exitOuter(NESTING, thrown);
    }
}
