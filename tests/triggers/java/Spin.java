import java.lang.management.ManagementFactory;

/**
 * Sleeps the milliseconds of its first argument, then keeps one thread busy
 * for those of its second, printing "spinning since <uptime ms>" when it
 * begins and "idle since <uptime ms>" when it ends, then sleeps those of its
 * third, if given, and prints "done".
 */
public class Spin {
    static volatile long sink;

    public static void main(String[] args) throws Exception {
        Thread.sleep(Long.parseLong(args[0]));
        System.out.println("spinning since " + ManagementFactory.getRuntimeMXBean().getUptime());
        long end = System.nanoTime() + Long.parseLong(args[1]) * 1_000_000L;
        long x = 1;
        while (System.nanoTime() < end) {
            for (int i = 0; i < 100_000; i++) {
                x = x * 6364136223846793005L + 1442695040888963407L;
            }
            sink = x;
        }
        System.out.println("idle since " + ManagementFactory.getRuntimeMXBean().getUptime());
        if (args.length > 2) {
            Thread.sleep(Long.parseLong(args[2]));
        }
        System.out.println("done");
    }
}
