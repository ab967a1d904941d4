package com.corvane.testing;

/**
 * A program of known shape for runs with the real agent: main spends most of
 * its time in {@link #hot}, a little in {@link #warm}, for 0.8 s of its own
 * CPU time, however busy the machine is (and at most 20 s of wall time).
 */
public final class HotLoop {
    private HotLoop() {
    }

    public static void main(String[] args) {
        java.lang.management.ThreadMXBean threads = java.lang.management.ManagementFactory.getThreadMXBean();
        long cpuEnd = threads.getCurrentThreadCpuTime() + 800_000_000L;
        long deadline = System.nanoTime() + 20_000_000_000L;
        long sum = 0;
        while (threads.getCurrentThreadCpuTime() < cpuEnd && System.nanoTime() < deadline) {
            for (int i = 0; i < 100; i++) {
                sum += hot(i);
            }
            sum += warm(sum);
        }
        System.out.println("sum " + sum);
    }

    static long hot(int seed) {
        long h = seed;
        for (int i = 0; i < 20_000; i++) {
            h = h * 6364136223846793005L + 1442695040888963407L;
            h ^= h >>> 29;
        }
        return h & 1;
    }

    static long warm(long seed) {
        long h = seed;
        for (int i = 0; i < 50_000; i++) {
            h = h * 31 + i;
        }
        return h & 1;
    }
}
