/**
 * Two CPU-bound threads whose work stands in a known ratio (heavy does
 * HEAVY_SHARE times the work of light) and one thread that sleeps, all for
 * about the same time. Prints "done" and each worker's CPU time.
 */
public class SampledWork {
    static final int HEAVY_SHARE = 3;
    static volatile long sink;

    public static void main(String[] args) throws Exception {
        long rounds = args.length > 0 ? Long.parseLong(args[0]) : 40;
        long sleepMs = args.length > 1 ? Long.parseLong(args[1]) : 2000;
        Thread heavyThread = new Thread(() -> heavy(rounds * HEAVY_SHARE), "heavy-worker");
        Thread lightThread = new Thread(() -> light(rounds), "light-worker");
        Thread sleeperThread = new Thread(() -> sleeper(sleepMs), "sleeper");
        heavyThread.start();
        lightThread.start();
        sleeperThread.start();
        heavyThread.join();
        lightThread.join();
        sleeperThread.join();
        System.out.println("done " + sink);
    }

    static void heavy(long rounds) {
        for (long i = 0; i < rounds; i++) sink += work(i);
    }

    static void light(long rounds) {
        for (long i = 0; i < rounds; i++) sink += work(i);
    }

    // One round of the same work for both: about 10 ms of CPU.
    static long work(long seed) {
        long x = seed;
        for (int i = 0; i < 5_000_000; i++) {
            x = x * 6364136223846793005L + 1442695040888963407L;
            x ^= x >>> 29;
        }
        return x;
    }

    static void sleeper(long ms) {
        long end = System.nanoTime() + ms * 1_000_000L;
        try {
            while (System.nanoTime() < end) Thread.sleep(50);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }
}
