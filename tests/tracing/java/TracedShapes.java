/**
 * A program of known shape for the tracing tests: every count below is what
 * the snapshot must show exactly. It prints the durations it measured
 * itself around the sleeping and spinning calls, as "measured <what> <ns>".
 */
public class TracedShapes {
    static final int[] LEAF_CALLS = {120_000, 80_000, 40_000};
    static final int RECURSION_DEPTH = 6;
    static final int RECURSIONS = 50;
    static final int THROWS = 40;
    static final int EARLY_LEAF_CALLS = 1000;
    static final int SHORT_THREADS = 20;
    static final long SLEEP_MS = 200;
    static final long SPIN_MS = 150;

    static volatile long sink;

    static int leaf(int x) {
        int h = x;
        for (int i = 0; i < 8; i++) {
            h = h * 31 + i;
        }
        return h;
    }

    static void body(int calls) {
        for (int i = 0; i < calls; i++) {
            sink += leaf(i);
        }
    }

    static int recurse(int depth) {
        return depth <= 1 ? 1 : 1 + recurse(depth - 1);
    }

    static void thrower1() {
        throw new IllegalStateException("thrown through three frames");
    }

    static void thrower2() {
        thrower1();
    }

    static void thrower3() {
        thrower2();
    }

    static void catcher() {
        try {
            thrower3();
        } catch (IllegalStateException e) {
            sink++;
        }
    }

    static void sleeper() throws InterruptedException {
        Thread.sleep(SLEEP_MS);
    }

    static void spinner() {
        long end = System.nanoTime() + SPIN_MS * 1_000_000;
        while (System.nanoTime() < end) {
            sink++;
        }
    }

    static void shortTask() {
        sink += leaf(7);
    }

    static final class Worker extends Thread {
        private final int myIndex;

        Worker(int index) {
            super("worker-" + (index + 1));
            myIndex = index;
        }

        @Override
        public void run() {
            long bodyNs;
            long extraNs = 0;
            try {
                long start = System.nanoTime();
                body(LEAF_CALLS[myIndex]);
                bodyNs = System.nanoTime() - start;
                for (int i = 0; i < RECURSIONS; i++) {
                    recurse(RECURSION_DEPTH);
                }
                for (int i = 0; i < THROWS; i++) {
                    catcher();
                }
                if (myIndex == 0) {
                    start = System.nanoTime();
                    sleeper();
                    extraNs = System.nanoTime() - start;
                }
                if (myIndex == 1) {
                    start = System.nanoTime();
                    spinner();
                    extraNs = System.nanoTime() - start;
                }
            } catch (InterruptedException e) {
                throw new IllegalStateException(e);
            }
            report(getName(), bodyNs, extraNs);
        }
    }

    static final class Early extends Thread {
        Early() {
            super("early");
        }

        @Override
        public void run() {
            body(EARLY_LEAF_CALLS);
        }
    }

    static final class Short extends Thread {
        private final int myCalls;

        Short(int calls) {
            super("short-" + calls);
            myCalls = calls;
        }

        @Override
        public void run() {
            for (int i = 0; i < myCalls; i++) {
                shortTask();
            }
        }
    }

    static synchronized void report(String worker, long bodyNs, long extraNs) {
        System.out.println("measured body " + worker + " " + bodyNs);
        if (extraNs > 0) {
            System.out.println("measured " + (worker.equals("worker-1") ? "sleeper" : "spinner") + " " + extraNs);
        }
    }

    public static void main(String[] args) throws Exception {
        Thread early = new Early();
        early.start();
        early.join();
        for (int k = 1; k <= SHORT_THREADS; k++) {
            Thread thread = new Short(k);
            thread.start();
            thread.join();
        }
        Worker[] workers = new Worker[LEAF_CALLS.length];
        for (int i = 0; i < workers.length; i++) {
            workers[i] = new Worker(i);
            workers[i].start();
        }
        for (Worker worker : workers) {
            worker.join();
        }
        System.out.println("done " + sink);
    }
}
