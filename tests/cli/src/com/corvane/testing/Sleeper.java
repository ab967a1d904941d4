package com.corvane.testing;

/** A JVM for attach tests: says it is up, then waits to be killed. */
public final class Sleeper {
    private Sleeper() {
    }

    public static void main(String[] args) throws InterruptedException {
        System.out.println("ready");
        System.out.flush();
        Thread.sleep(120_000);
    }
}
