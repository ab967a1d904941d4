package com.corvane.runtime;

import java.util.concurrent.atomic.LongAdder;

// Stands in for the agent's Callback class when the benchmark runs a program
// from rewritten class files: it counts the calls of each kind and prints
// them at exit, so that two rewriters can be shown to make the same edits.
public final class Callback {
    private static final LongAdder ENTRIES = new LongAdder();
    private static final LongAdder EXITS = new LongAdder();
    private static final LongAdder LINES = new LongAdder();
    private static final LongAdder ALLOCATIONS = new LongAdder();

    static {
        Runtime.getRuntime().addShutdownHook(new Thread(() -> System.out.println(
                "calls entry " + ENTRIES.sum() + " exit " + EXITS.sum() + " line " + LINES.sum()
                        + " init " + ALLOCATIONS.sum())));
    }

    private Callback() {
    }

    public static long kztMethodEntry(int methodId, long counter) {
        ENTRIES.increment();
        return 0;
    }

    public static void kztMethodExit(int methodId, long entryResult) {
        EXITS.increment();
    }

    public static void kztMethodLine(int line, long entryResult) {
        LINES.increment();
    }

    public static int kztInit(Object o, int cachedFrame, int classMethodId, short line, long counter) {
        ALLOCATIONS.increment();
        return cachedFrame;
    }
}
