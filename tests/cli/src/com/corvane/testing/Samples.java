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
        int fMain = p.frame(0, main, 0);
        int fCompute10 = p.frame(fMain, compute, 10);
        int fCompute20 = p.frame(fMain, compute, 20);
        int fRead = p.frame(fMain, read, 30);
        int fOwn10 = p.frame(fCompute10, own, 55);
        int fOwn20 = p.frame(fCompute20, own, 56);
        int fMainOwn = p.frame(fMain, own, 12);
        p.time(mainThread, fMain, 1_000_000_000L, 0);
        p.time(mainThread, fCompute10, 500_000_000L, 0);
        p.time(mainThread, fOwn10, 500_000_000L, 0);
        p.time(mainThread, fCompute20, 200_000_000L, 0);
        p.time(mainThread, fOwn20, 200_000_000L, 0);
        p.time(mainThread, fRead, 100_000_000L, 0);
        p.time(mainThread, fMainOwn, 200_000_000L, 0);

        int worker = p.thread("worker", 2, true);
        int fRun = p.frame(0, run, 0);
        int fRunCompute = p.frame(fRun, compute, 7);
        p.time(worker, fRun, 400_000_000L, 0);
        p.time(worker, fRunCompute, 300_000_000L, 0);
        return p;
    }
}
