/**
 * The workload of the monitors benchmark, by its argument.
 *
 * "exceptions": each worker throws exceptions that are caught two frames up,
 * as parsers and validators do, with some work around each. Prints
 * "exceptions <n>": the exceptions of the timed rounds.
 *
 * "monitors": the workers share one lock and do most of their work inside
 * it, so that they keep blocking on each other. Prints
 * "entries <n>": the synchronized blocks entered in the timed rounds.
 *
 * Timed by TimedWorkers, which prints "wall_ns <n> cpu_ns <n>" first.
 */
public class ContendAndThrow {
    static final int THREADS = 3;
    static final int WARMUP_ROUNDS = 2;
    static final int TIMED_ROUNDS = 5;
    static final int THROWS = 20_000;
    static final int ENTRIES = 2_000;

    static final class Invalid extends RuntimeException {
        final int value;

        Invalid(int value) {
            super("invalid: " + value);
            this.value = value;
        }
    }

    static final Object LOCK = new Object();
    static int ourShared;

    static int work(int seed, int steps) {
        int h = seed;
        for (int i = 0; i < steps; i++) {
            h = h * 31 + i;
        }
        return h;
    }

    static int check(int value) {
        if ((value & 1) == 0) {
            throw new Invalid(value);
        }
        return value;
    }

    static int parse(int value) {
        return check(work(value, 20) | (value & 1));
    }

    static int throwingRound(int seed) {
        int acc = seed;
        for (int i = 0; i < 2 * THROWS; i++) {
            try {
                acc += parse(i);
            } catch (Invalid e) {
                acc += e.value;
            }
        }
        return acc;
    }

    static int contendedRound(int seed) {
        int acc = seed;
        for (int i = 0; i < ENTRIES; i++) {
            synchronized (LOCK) {
                ourShared = work(ourShared + i, 20_000);
                acc += ourShared;
            }
            acc = work(acc, 2_000);
        }
        return acc;
    }

    public static void main(String[] args) throws Exception {
        boolean exceptions = args[0].equals("exceptions");
        long perRound = (long) (exceptions ? THROWS : ENTRIES) * TIMED_ROUNDS * THREADS;
        TimedWorkers.run(THREADS, WARMUP_ROUNDS, TIMED_ROUNDS,
                index -> exceptions ? ContendAndThrow::throwingRound : ContendAndThrow::contendedRound,
                "worker", (exceptions ? " exceptions " : " entries ") + perRound);
    }
}
