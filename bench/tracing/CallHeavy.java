import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.util.concurrent.CountDownLatch;

/**
 * A call-heavy workload for the tracing benchmark: several threads run many
 * small methods, each with a little work of its own. After warm-up rounds,
 * the timed rounds print "wall_ns <n> cpu_ns <n> calls <n>": wall time of
 * the timed rounds, CPU time of the workers in them, and the method calls
 * they made.
 */
public class CallHeavy {
    static final int THREADS = 3;
    static final int WARMUP_ROUNDS = 4;
    static final int TIMED_ROUNDS = 6;
    static final int ITEMS = 100_000;
    static final int CALLS_PER_ITEM = 4;

    static volatile int sink;

    // Each method does a little work of its own (tens of nanoseconds), as
    // application code does; none is empty enough for the JIT to fold away.
    static int checksum(int[] data, int seed) {
        int h = seed;
        for (int i = 0; i < data.length; i++) {
            h = h * 31 + data[i];
        }
        return h;
    }

    static int scan(char[] text, int shift) {
        int letters = 0;
        int digits = 0;
        for (int i = 0; i < text.length; i++) {
            char c = (char) (text[i] + shift % 3);
            if (c >= 'a' && c <= 'z') {
                letters++;
            } else if (c >= '0' && c <= '9') {
                digits++;
            }
        }
        return letters * 31 + digits;
    }

    static int mix(int x) {
        int h = x;
        for (int i = 0; i < 40; i++) {
            h ^= h >>> 15;
            h *= 0x2c1b3c6d;
        }
        return h;
    }

    static int process(int[] data, char[] text, int i) {
        int h = checksum(data, i);
        data[i & (data.length - 1)] = mix(h);
        return h + scan(text, i);
    }

    static int round(int[] data, char[] text, int seed) {
        int acc = seed;
        for (int i = 0; i < ITEMS; i++) {
            acc += process(data, text, i ^ acc);
        }
        return acc;
    }

    public static void main(String[] args) throws Exception {
        ThreadMXBean threads = ManagementFactory.getThreadMXBean();
        long[] cpu = new long[THREADS];
        CountDownLatch warm = new CountDownLatch(THREADS);
        CountDownLatch go = new CountDownLatch(1);
        CountDownLatch done = new CountDownLatch(THREADS);
        for (int t = 0; t < THREADS; t++) {
            int index = t;
            Thread worker = new Thread(() -> {
                int[] data = new int[128];
                char[] text = "a1b2c3d4e5 f6g7h8i9j0 klmnopqrstu, 12345 vwxyz; ABCDEF ghijk 67890.".repeat(2).toCharArray();
                int acc = index;
                for (int r = 0; r < WARMUP_ROUNDS; r++) {
                    acc = round(data, text, acc);
                }
                warm.countDown();
                try {
                    go.await();
                } catch (InterruptedException e) {
                    throw new IllegalStateException(e);
                }
                long start = threads.getCurrentThreadCpuTime();
                for (int r = 0; r < TIMED_ROUNDS; r++) {
                    acc = round(data, text, acc);
                }
                cpu[index] = threads.getCurrentThreadCpuTime() - start;
                sink += acc;
                done.countDown();
            }, "bench-" + t);
            worker.start();
        }
        warm.await();
        long start = System.nanoTime();
        go.countDown();
        done.await();
        long wall = System.nanoTime() - start;
        long cpuSum = 0;
        for (long c : cpu) {
            cpuSum += c;
        }
        long calls = (long) THREADS * TIMED_ROUNDS * ITEMS * CALLS_PER_ITEM;
        System.out.println("wall_ns " + wall + " cpu_ns " + cpuSum + " calls " + calls);
    }
}
