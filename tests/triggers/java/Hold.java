import java.lang.management.ManagementFactory;

/**
 * Holds the megabytes of its first argument in live arrays for the
 * milliseconds of its second, printing "holding since <uptime ms>" once they
 * are all allocated, then "done".
 */
public class Hold {
    static byte[][] held;

    public static void main(String[] args) throws Exception {
        // Pieces of 64 KB: no larger than a heap region of the smallest heaps.
        held = new byte[Integer.parseInt(args[0]) * 16][];
        for (int i = 0; i < held.length; i++) {
            held[i] = new byte[1 << 16];
        }
        System.out.println("holding since " + ManagementFactory.getRuntimeMXBean().getUptime());
        Thread.sleep(Long.parseLong(args[1]));
        System.out.println("done");
    }
}
