/**
 * A call-heavy workload for the tracing benchmark: several threads run many
 * small methods, each with a little work of its own. Timed by TimedWorkers,
 * which prints "wall_ns <n> cpu_ns <n>", followed by "calls <n>": the calls
 * of the four hot methods in the timed rounds, as the loops make them (the
 * probe benchmark's measure). The tracing benchmark counts the calls that
 * tracing saw in its snapshot instead.
 */
public class CallHeavy {
    static final int THREADS = 3;
    static final int WARMUP_ROUNDS = 4;
    static final int TIMED_ROUNDS = 6;
    static final int ITEMS = 100_000;
    static final int HOT_CALLS_PER_ITEM = 4; // process, checksum, mix, scan

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
        TimedWorkers.run(THREADS, WARMUP_ROUNDS, TIMED_ROUNDS, index -> {
            int[] data = new int[128];
            char[] text = "a1b2c3d4e5 f6g7h8i9j0 klmnopqrstu, 12345 vwxyz; ABCDEF ghijk 67890.".repeat(2).toCharArray();
            return seed -> round(data, text, seed);
        }, "bench", " calls " + (long) THREADS * TIMED_ROUNDS * ITEMS * HOT_CALLS_PER_ITEM);
    }
}
