package com.corvane.runtime;

import java.util.ArrayDeque;
import java.util.TreeSet;

/**
 * Test stand-in for the agent's Callback: records what rewritten code calls,
 * and checks that every exit matches an entry of the same method.
 */
public final class Callback {
    private static final ThreadLocal<ArrayDeque<Integer>> STACK = ThreadLocal.withInitial(ArrayDeque::new);
    private static long entries, exits, lines, inits, vanished, errors;
    private static final TreeSet<String> ALLOCATED = new TreeSet<>();
    private static boolean inside;

    public static synchronized long kztMethodEntry(int methodId, long counter) {
        if (inside) return 0;
        entries++;
        STACK.get().push(methodId);
        return 0;
    }

    public static synchronized void kztMethodExit(int methodId, long entryResult) {
        if (inside) return;
        exits++;
        ArrayDeque<Integer> stack = STACK.get();
        // Frames left by an exception have no exit: they vanish here.
        while (!stack.isEmpty() && stack.peek() != methodId) {
            stack.pop();
            vanished++;
        }
        if (stack.isEmpty()) errors++;
        else stack.pop();
    }

    public static synchronized void kztMethodLine(int line, long entryResult) {
        if (inside) return;
        lines++;
        if (line <= 0) errors++;
    }

    public static synchronized int kztInit(Object o, int cachedFrame, int classMethodId, short line, long counter) {
        if (inside) return cachedFrame;
        inside = true;
        inits++;
        if (o == null) errors++;
        else ALLOCATED.add(classMethodId + " " + o.getClass().getTypeName());
        inside = false;
        return cachedFrame + 1;
    }

    public static long getUptimeMs() {
        return System.nanoTime() / 1_000_000;
    }

    public static synchronized void report() {
        inside = true;
        System.out.println("calls entries=" + entries + " exits=" + exits + " lines=" + lines + " inits=" + inits
                + " vanished=" + vanished + " errors=" + errors);
        for (String s : ALLOCATED) System.out.println("allocated " + s);
    }
}
