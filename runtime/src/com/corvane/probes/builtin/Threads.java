package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.Table;
import com.corvane.probes.This;

/**
 * Threads created and started: a row each time, by the creating or starting
 * thread (the row's own thread column), naming the new thread, its group and
 * whether it is a daemon.
 */
@MethodPattern("java.lang.Thread:start()")
public final class Threads {
    static final Table THREADS = new Table("Threads", false);
    static final Table.StringColumn THREAD = THREADS.stringColumn("Thread");
    static final Table.StringColumn EVENT = THREADS.stringColumn("Event");
    static final Table.StringColumn GROUP = THREADS.stringColumn("Group");
    static final Table.IntColumn DAEMON = THREADS.intColumn("Daemon");
    // The agent's own threads, which are no part of the program.
    private static final String AGENT_THREADS = "KZTAgent";

    private Threads() {
    }

    public static void onEnter(@This Thread thread) {
        add(thread, "started");
    }

    static void add(Thread thread, String event) {
        try {
            if (thread.getName().startsWith(AGENT_THREADS)) {
                return;
            }
            int row = THREADS.createRow();
            if (row == 0) {
                return;
            }
            THREAD.set(row, thread.getName());
            EVENT.set(row, event);
            ThreadGroup group = thread.getThreadGroup();
            GROUP.set(row, group == null ? null : group.getName());
            DAEMON.set(row, thread.isDaemon() ? 1 : 0);
        } catch (Throwable e) {
            // the program's thread stands
        }
    }

    /**
     * Creation. The constructors call one another and end in one that sets
     * the thread up; its end is the thread made, with its name and group.
     */
    @MethodPattern({
            "java.lang.Thread:<init>(java.lang.ThreadGroup, java.lang.Runnable, java.lang.String, long, java.security.AccessControlContext, boolean)",
            "java.lang.Thread:<init>(java.lang.ThreadGroup, java.lang.String, int, java.lang.Runnable, long, java.security.AccessControlContext)"})
    public static final class Created {
        private Created() {
        }

        public static void onReturn(@This Thread thread) {
            add(thread, "created");
        }
    }
}
