import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.util.concurrent.CountDownLatch;
import java.util.function.IntFunction;

/**
 * The timing of the benchmark programs: worker threads run warm-up rounds,
 * wait for each other, then run the timed rounds together. Prints
 * "wall_ns <n> cpu_ns <n>" and the program's own fields: the wall time of
 * the timed rounds, and the CPU time of the workers in them.
 */
final class TimedWorkers {
    /** One worker's state; a round of work turns a seed into the next. */
    interface Worker {
        int round(int seed);
    }

    static volatile int sink;

    private TimedWorkers() {
    }

    static void run(int threadCount, int warmupRounds, int timedRounds, IntFunction<Worker> newWorker,
            String threadName, String moreFields) throws InterruptedException {
        ThreadMXBean threads = ManagementFactory.getThreadMXBean();
        long[] cpu = new long[threadCount];
        CountDownLatch warm = new CountDownLatch(threadCount);
        CountDownLatch go = new CountDownLatch(1);
        CountDownLatch done = new CountDownLatch(threadCount);
        for (int t = 0; t < threadCount; t++) {
            int index = t;
            Thread thread = new Thread(() -> {
                Worker worker = newWorker.apply(index);
                int seed = index;
                for (int r = 0; r < warmupRounds; r++) {
                    seed = worker.round(seed);
                }
                warm.countDown();
                try {
                    go.await();
                } catch (InterruptedException e) {
                    throw new IllegalStateException(e);
                }
                long start = threads.getCurrentThreadCpuTime();
                for (int r = 0; r < timedRounds; r++) {
                    seed = worker.round(seed);
                }
                cpu[index] = threads.getCurrentThreadCpuTime() - start;
                sink += seed;
                done.countDown();
            }, threadName + "-" + (t + 1));
            thread.start();
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
        System.out.println("wall_ns " + wall + " cpu_ns " + cpuSum + moreFields);
    }
}
