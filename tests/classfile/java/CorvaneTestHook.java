package com.sun.tools.javac;

// Target of the calls that the rewritten compiler classes make. It lives in a
// package of the compiler's own module, so every rewritten class can reach it.
public final class CorvaneTestHook {
    private static long calls;

    static {
        Runtime.getRuntime().addShutdownHook(new Thread(() -> System.err.println("hook calls: " + calls)));
    }

    public static void hit() {
        calls++;
    }
}
