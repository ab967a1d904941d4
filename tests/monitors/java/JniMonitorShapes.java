/**
 * A monitor held across a thread's end: "jni-holder" enters a Held through
 * JNI and never exits it; "jni-blocked", a daemon, blocks on it; the holder
 * ends HOLD_MS after that, still owning the monitor, which the JVM keeps
 * owned: the blocked thread stays blocked until the JVM exits. The snapshot
 * is captured while it is. Arguments: the snapshot path, the test's JNI
 * library.
 */
public class JniMonitorShapes {
    static final long HOLD_MS = 200;

    static class Held { }

    static final Held HELD = new Held();
    static volatile int ourEntered;

    static native void enterAndKeep(Object monitor);

    static void blockOnce() {
        synchronized (HELD) {
            ourEntered++; // BLOCK-HELD
        }
    }

    public static void main(String[] args) throws Exception {
        System.load(args[1]);
        Thread blocked = new Thread(JniMonitorShapes::blockOnce, "jni-blocked");
        blocked.setDaemon(true);
        Thread holder = new Thread(() -> {
            enterAndKeep(HELD);
            blocked.start();
            MonitorShapes.awaitBlocked(blocked);
            MonitorShapes.sleep(HOLD_MS);
        }, "jni-holder");
        holder.start();
        holder.join();
        MonitorShapes.sleep(HOLD_MS);
        System.out.println("still " + blocked.getState());
        Object result = Class.forName("com.corvane.runtime.Callback")
                .getMethod("captureSnapshot", String.class, int.class, long.class).invoke(null, args[0], -1, 0L);
        System.out.println("capture " + result);
        System.out.println("done " + ourEntered);
    }
}
