package com.corvane.testing;

/**
 * Profiles the tests share. The sampled one: thread "main" runs
 * Main.main, which calls Work.compute (twice, from two lines) and
 * Io.read; compute's time sits in own-line frames, as sampling leaves it.
 * Thread "worker" runs Worker.run calling Work.compute.
 */
public final class Samples {
    public static final String HOT_METHOD = "com.example.Work.compute(int)";

    private Samples() {
    }

    public static ProfileBuilder sampled() {
        ProfileBuilder p = new ProfileBuilder().cpuMode(ProfileBuilder.SAMPLING);
        int main = p.method("com.example.Main", "main", "(java.lang.String[])");
        int compute = p.method("com.example.Work", "compute", "(int)");
        int read = p.method("com.example.Io", "read", "()");
        int run = p.method("com.example.Worker", "run", "()");
        int own = p.ownLineMethod();

        int mainThread = p.thread("main", 1, false);
        int fMain = p.call(mainThread, 0, main, 0, 1_000_000_000L, 0);
        int fCompute10 = p.call(mainThread, fMain, compute, 10, 500_000_000L, 0);
        int fCompute20 = p.call(mainThread, fMain, compute, 20, 200_000_000L, 0);
        p.call(mainThread, fMain, read, 30, 100_000_000L, 0);
        p.call(mainThread, fCompute10, own, 55, 500_000_000L, 0);
        p.call(mainThread, fCompute20, own, 56, 200_000_000L, 0);
        p.call(mainThread, fMain, own, 12, 200_000_000L, 0);

        int worker = p.thread("worker", 2, true);
        int fRun = p.call(worker, 0, run, 0, 400_000_000L, 0);
        p.call(worker, fRun, compute, 7, 300_000_000L, 0);
        return p;
    }
}
