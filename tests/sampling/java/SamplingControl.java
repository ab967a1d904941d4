import java.lang.reflect.Method;

/**
 * Switches sampling through the natives: each phase spins its own method
 * for a while, sampled or not. Prints what each switch answered, as
 * "<step> <answer>", and how many sampler threads there are. A snapshot
 * is captured to args[0] before the restart, which clears the data.
 */
public class SamplingControl {
    static final long PHASE_NS = 400_000_000L;
    static volatile long sink;

    static void phaseSampled() { spin(); }
    static void phaseStopped() { spin(); }
    static void phaseRestarted() { spin(); }

    // Until the thread itself has run for the phase: a loaded machine stretches
    // the wall time, not what the phase gets to be sampled.
    static void spin() {
        java.lang.management.ThreadMXBean threads = java.lang.management.ManagementFactory.getThreadMXBean();
        long end = threads.getCurrentThreadCpuTime() + PHASE_NS;
        long x = 1;
        while (threads.getCurrentThreadCpuTime() < end) {
            for (int i = 0; i < 10_000; i++) x = x * 31 + i;
        }
        sink += x;
    }

    static Object call(String name, Class<?>[] types, Object... arguments) throws Exception {
        Method method = Class.forName("com.corvane.runtime.Callback").getMethod(name, types);
        return method.invoke(null, arguments);
    }

    static String start(long mode, String settings) throws Exception {
        return (String) call("startCpuProfiling", new Class<?>[] {long.class, String.class}, mode, settings);
    }

    static void stop() throws Exception {
        call("stopCpuProfiling", new Class<?>[] {boolean.class}, false);
    }

    // Agent threads are hidden from Java: count the process's own threads by
    // their system names (cut to 15 characters).
    static long samplerThreads() throws Exception {
        long count = 0;
        try (var tasks = java.nio.file.Files.list(java.nio.file.Path.of("/proc/self/task"))) {
            for (var task : (Iterable<java.nio.file.Path>) tasks::iterator) {
                if (java.nio.file.Files.readString(task.resolve("comm")).startsWith("KZTAgent-CpuSa")) count++;
            }
        }
        return count;
    }

    public static void main(String[] args) throws Exception {
        System.out.println("threads " + samplerThreads());
        System.out.println("start " + start(4, "sampling_period_ms=10\n"));
        System.out.println("again " + start(4, null));
        phaseSampled();
        stop();
        System.out.println("async " + start(0x20004, null));
        phaseStopped();
        System.out.println("capture " + call("captureSnapshot", new Class<?>[] {String.class, int.class, long.class},
                args[0], -1, 0L));
        System.out.println("restart " + start(4, "sampling_period_ms=10\n"));
        phaseRestarted();
        call("startStackTelemetry", new Class<?>[0]);
        call("storeTelemetryRecord", new Class<?>[] {int[].class, int[].class, int[].class, int[].class}, new int[7],
                new int[12], new int[0], new int[0]);
        System.out.println("threads " + samplerThreads());
        System.out.println("done " + sink);
    }
}
