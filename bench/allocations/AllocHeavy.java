/**
 * An allocation-heavy workload for the allocation benchmark: several threads
 * each build short-lived little structures, as application code does: per
 * item one small object and one small array with some work on them, and now
 * and then a large array. A ring keeps the last objects alive for a while,
 * so that the collector has live data to move. Timed by TimedWorkers, which
 * prints "wall_ns <n> cpu_ns <n>", followed by "objects <n>": the objects the
 * timed rounds made.
 */
public class AllocHeavy {
    static final int THREADS = 3;
    static final int WARMUP_ROUNDS = 3;
    static final int TIMED_ROUNDS = 5;
    static final int ITEMS = 200_000;
    static final int RING = 1024;
    static final int LARGE_EVERY = 1024;
    static final int LARGE_SIZE = 16384;

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
        TimedWorkers.run(THREADS, WARMUP_ROUNDS, TIMED_ROUNDS, index -> {
            Node[] ring = new Node[RING];
            return seed -> seed + round(ring, seed);
        }, "worker", " objects " + objectsPerRound() * TIMED_ROUNDS * THREADS);
    }
}
