import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.util.concurrent.CountDownLatch;

/**
 * An allocation-heavy workload for the allocation benchmark: several threads
 * each build short-lived little structures, as application code does: per
 * item one small object and one small array with some work on them, and now
 * and then a large array. A ring keeps the last objects alive for a while,
 * so that the collector has live data to move. After warm-up rounds, the
 * timed rounds print "wall_ns <n> cpu_ns <n> objects <n>": wall time of the
 * timed rounds, CPU time of the workers in them, and the objects they made.
 */
public class AllocHeavy {
    static final int THREADS = 3;
    static final int WARMUP_ROUNDS = 3;
    static final int TIMED_ROUNDS = 5;
    static final int ITEMS = 200_000;
    static final int RING = 1024;
    static final int LARGE_EVERY = 1024;
    static final int LARGE_SIZE = 16384;

    static volatile int sink;

    static final class Node {
        final int key;
        final int previousKey;
        int[] values;

        Node(int key, int previousKey) {
            this.key = key;
            this.previousKey = previousKey;
        }
    }

    static int fill(int[] values, int seed) {
        int h = seed;
        for (int i = 0; i < values.length; i++) {
            h = h * 31 + i;
            values[i] = h;
        }
        return h;
    }

    static int item(Node[] ring, int i) {
        Node previous = ring[(i - 1) & (RING - 1)];
        Node node = new Node(i, previous == null ? 0 : previous.key);
        node.values = new int[8 + (i & 7)];
        int h = fill(node.values, i);
        if (previous != null && previous.values != null) {
            h += previous.values[i & 7] + previous.previousKey;
        }
        ring[i & (RING - 1)] = node;
        if ((i & (LARGE_EVERY - 1)) == 0) {
            byte[] large = new byte[LARGE_SIZE];
            large[i & (LARGE_SIZE - 1)] = (byte) h;
            h += large[h & (LARGE_SIZE - 1)];
        }
        return h;
    }

    static int round(Node[] ring, int seed) {
        int acc = seed;
        for (int i = 0; i < ITEMS; i++) {
            acc += item(ring, i);
        }
        return acc;
    }

    static long objectsPerRound() {
        return 2L * ITEMS + (ITEMS + LARGE_EVERY - 1) / LARGE_EVERY;
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
                Node[] ring = new Node[RING];
                int acc = index;
                for (int r = 0; r < WARMUP_ROUNDS; r++) {
                    acc += round(ring, acc);
                }
                warm.countDown();
                try {
                    go.await();
                } catch (InterruptedException e) {
                    throw new IllegalStateException(e);
                }
                long start = threads.getCurrentThreadCpuTime();
                for (int r = 0; r < TIMED_ROUNDS; r++) {
                    acc += round(ring, acc);
                }
                cpu[index] = threads.getCurrentThreadCpuTime() - start;
                sink = acc;
                done.countDown();
            }, "worker-" + (t + 1));
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
        System.out.println("wall_ns " + wall + " cpu_ns " + cpuSum + " objects " + objectsPerRound() * TIMED_ROUNDS * THREADS);
    }
}
