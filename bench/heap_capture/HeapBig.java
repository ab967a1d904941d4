import java.io.File;
import java.lang.reflect.Method;
import java.util.concurrent.TimeUnit;

/**
 * A heap of known size for the heap capture benchmark. Arguments: millions
 * of objects, "ours" or "jdk", the dump file. The program makes the objects
 * (a linked list of items, each with a small int array and every fourth
 * with a string), then has the heap dumped once: "ours" through the agent's
 * memory snapshot native, "jdk" by running `jcmd <pid> GC.heap_dump` on
 * itself. A ticker thread notes the longest gap between its ticks while the
 * dump runs: the program's pause. It prints "RESULT objects seconds pause_seconds
 * file_bytes".
 */
public class HeapBig {
    static final class Item {
        Item next;
        int[] values;
        Object label;
        long id;
    }

    static volatile long lastTick;
    static volatile long longestGap;
    static volatile boolean measuring;

    public static void main(String[] args) throws Exception {
        long wanted = Long.parseLong(args[0]) * 1_000_000L;
        String mode = args[1];
        File file = new File(args[2]);
        Item head = null;
        long made = 0;
        for (long i = 0; made < wanted; i++) {
            Item item = new Item();
            item.id = i;
            item.values = new int[] {(int) i, 1, 2};
            item.next = head;
            made += 2;
            if (i % 4 == 0) {
                item.label = "item " + i;
                made += 2;
            }
            head = item;
        }
        Thread ticker = new Thread(() -> {
            while (true) {
                long now = System.nanoTime();
                if (measuring) {
                    longestGap = Math.max(longestGap, now - lastTick);
                }
                lastTick = now;
                try {
                    Thread.sleep(1);
                } catch (InterruptedException e) {
                    return;
                }
            }
        }, "ticker");
        ticker.setDaemon(true);
        ticker.start();
        System.gc();
        Thread.sleep(200);
        lastTick = System.nanoTime();
        measuring = true;
        long start = System.nanoTime();
        if (mode.equals("ours")) {
            Method capture = Class.forName("com.corvane.runtime.Callback").getMethod("captureSnapshot", String.class,
                    int.class, long.class);
            Object error = capture.invoke(null, file.getPath(), -1, 1L);
            if (error != null) {
                throw new IllegalStateException("capture: " + error);
            }
        } else {
            String jcmd = System.getProperty("java.home") + "/bin/jcmd";
            Process process = new ProcessBuilder(jcmd, Long.toString(ProcessHandle.current().pid()), "GC.heap_dump",
                    file.getPath()).redirectErrorStream(true).redirectOutput(ProcessBuilder.Redirect.DISCARD).start();
            if (!process.waitFor(600, TimeUnit.SECONDS) || process.exitValue() != 0) {
                throw new IllegalStateException("jcmd failed");
            }
        }
        long seconds = System.nanoTime() - start;
        Thread.sleep(20);
        measuring = false;
        System.out.println("RESULT " + made + " " + seconds / 1e9 + " " + longestGap / 1e9 + " " + file.length());
        System.out.println("kept " + (head == null ? 0 : head.id));
    }
}
