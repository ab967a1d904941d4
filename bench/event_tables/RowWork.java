/**
 * The event-table benchmark's program: one thread calls {@code step} in a
 * loop, which the benchmark's probes watch. Prints the fields of
 * TimedWorkers and "calls <n>", the calls of step in the timed rounds.
 */
public class RowWork {
    static final int CALLS_PER_ROUND = 50_000;
    static final int WARMUP_ROUNDS = 10;
    static final int TIMED_ROUNDS = 10;

    static int step(int i) {
        return i * 31 + (i >>> 3);
    }

    public static void main(String[] args) throws InterruptedException {
        TimedWorkers.run(1, WARMUP_ROUNDS, TIMED_ROUNDS, index -> seed -> {
            int value = seed;
            for (int i = 0; i < CALLS_PER_ROUND; i++) {
                value = step(value + i);
            }
            return value;
        }, "rows", " calls " + (long) CALLS_PER_ROUND * TIMED_ROUNDS);
    }
}
