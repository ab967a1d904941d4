/**
 * A JNI method called in a tight loop, for the native wrapping benchmark:
 * one worker thread, each round 2,000,000 calls of the static native step.
 * Timed by TimedWorkers ("wall_ns <n> cpu_ns <n>"), followed by " calls <n>":
 * the calls of the timed rounds. Argument: the path of the JNI library.
 */
public class JniLoop {
    static final int WARMUP_ROUNDS = 5;
    static final int TIMED_ROUNDS = 10;
    static final int CALLS = 2_000_000;

    static native int step(int x);

    static int round(int seed) {
        int x = seed;
        for (int i = 0; i < CALLS; i++) {
            x = step(x);
        }
        return x;
    }

    public static void main(String[] args) throws Exception {
        System.load(args[0]);
        TimedWorkers.run(1, WARMUP_ROUNDS, TIMED_ROUNDS, index -> JniLoop::round, "bench",
                " calls " + (long) TIMED_ROUNDS * CALLS);
    }
}
