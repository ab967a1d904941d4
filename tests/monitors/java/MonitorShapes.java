import java.lang.reflect.Method;

/**
 * Monitors of known shape. "holder" takes a Lock and keeps it HOLD_MS after
 * "blocker" is seen blocked on it, ROUNDS times; "nester" holds an Outer
 * while it blocks once on an Inner that "holder" keeps; "waiter" waits once
 * until a timeout and once until "notifier" notifies it; "short-lived" keeps
 * an Ending until "late" blocks on it and then ends. The class names of the
 * monitors tell the cases apart. The interpreter reports a contended enter
 * at the instruction behind monitorenter: the first line inside the block
 * is the place of a block. Arguments: the snapshot path, then "control" to
 * start monitor profiling through the natives (twice), clear the data after
 * the rounds on the Lock, and stop it (twice) before a block on an Unseen.
 */
public class MonitorShapes {
    static final int ROUNDS = 4;
    static final long HOLD_MS = 200;
    static final long TIMED_WAIT_MS = 300;
    static final long NOTIFY_AFTER_MS = 250;

    static class Lock { }
    static class Outer { }
    static class Inner { }
    static class WaitLock { }
    static class Ending { }
    static class Unseen { }

    static final Lock LOCK = new Lock();
    static final Outer OUTER = new Outer();
    static final Inner INNER = new Inner();
    static final WaitLock WAIT_LOCK = new WaitLock();
    static final Ending ENDING = new Ending();
    static final Unseen UNSEEN = new Unseen();

    // Rounds handed between the two threads without monitors, so that only the Lock is contended.
    static volatile int ourTaken;
    static volatile int ourEntered;
    static volatile boolean ourWaiting;

    static void awaitBlocked(Thread thread) {
        while (thread.getState() != Thread.State.BLOCKED) {
            Thread.onSpinWait();
        }
    }

    static void awaitWaiting(Thread thread) {
        while (thread.getState() != Thread.State.WAITING && thread.getState() != Thread.State.TIMED_WAITING) {
            Thread.onSpinWait();
        }
    }

    static void sleep(long ms) {
        try {
            Thread.sleep(ms);
        } catch (InterruptedException e) {
            throw new IllegalStateException(e);
        }
    }

    static void blockOnce() {
        synchronized (LOCK) {
            ourEntered++; // BLOCK-LOCK
        }
    }

    static void nestOnce() {
        synchronized (OUTER) {
            synchronized (INNER) {
                ourEntered++; // BLOCK-INNER
            }
        }
    }

    static void timedWait() throws InterruptedException {
        synchronized (WAIT_LOCK) {
            WAIT_LOCK.wait(TIMED_WAIT_MS); // WAIT-TIMED
        }
    }

    static void notifiedWait() throws InterruptedException {
        synchronized (WAIT_LOCK) {
            ourWaiting = true;
            while (ourWaiting) {
                WAIT_LOCK.wait(); // WAIT-NOTIFIED
            }
        }
    }

    static void lateOnce() {
        synchronized (ENDING) {
            ourEntered++; // BLOCK-ENDING
        }
    }

    static Thread start(String name, Runnable body) {
        Thread thread = new Thread(body, name);
        thread.start();
        return thread;
    }

    static Object call(String name) throws Exception {
        return Class.forName("com.corvane.runtime.Callback").getMethod(name).invoke(null);
    }

    /** One thread blocks on the monitor while another holds it HOLD_MS. */
    static void contend(Object monitor, String name) throws InterruptedException {
        Thread blocked = new Thread(() -> {
            synchronized (monitor) {
                ourEntered++;
            }
        }, name + "-blocked");
        Thread owner = start(name + "-owner", () -> {
            synchronized (monitor) {
                blocked.start();
                awaitBlocked(blocked);
                sleep(HOLD_MS);
            }
        });
        owner.join();
        blocked.join();
    }

    public static void main(String[] args) throws Exception {
        boolean control = args.length > 1 && args[1].equals("control");
        if (control) {
            // Started through the natives; the rounds on the Lock go with the clear.
            System.out.println("start " + call("startMonitorProfiling"));
            System.out.println("again " + call("startMonitorProfiling"));
        }
        Thread blocker = new Thread(() -> {
            for (int round = 1; round <= ROUNDS; round++) {
                while (ourTaken < round) {
                    Thread.onSpinWait();
                }
                blockOnce();
            }
        }, "blocker");
        Thread holder = new Thread(() -> {
            for (int round = 1; round <= ROUNDS; round++) {
                int entered = ourEntered;
                synchronized (LOCK) {
                    ourTaken = round;
                    awaitBlocked(blocker);
                    sleep(HOLD_MS);
                }
                while (ourEntered == entered) {
                    Thread.onSpinWait();
                }
            }
        }, "holder");
        blocker.start();
        holder.start();
        holder.join();
        blocker.join();
        if (control) {
            call("clearMonitorData");
        }

        // Nested: Outer is free and held, Inner is contended.
        Thread nester = new Thread(MonitorShapes::nestOnce, "nester");
        Thread innerHolder = start("inner-holder", () -> {
            synchronized (INNER) {
                nester.start();
                awaitBlocked(nester);
                sleep(HOLD_MS);
            }
        });
        innerHolder.join();
        nester.join();

        Thread waiter = start("waiter", () -> {
            try {
                timedWait();
                notifiedWait();
            } catch (InterruptedException e) {
                throw new IllegalStateException(e);
            }
        });
        while (!ourWaiting) {
            Thread.onSpinWait();
        }
        awaitWaiting(waiter);
        sleep(NOTIFY_AFTER_MS);
        synchronized (WAIT_LOCK) {
            ourWaiting = false;
            WAIT_LOCK.notifyAll();
        }
        waiter.join();

        // The owner ends right after the other thread got the monitor.
        Thread late = new Thread(MonitorShapes::lateOnce, "late");
        Thread shortLived = start("short-lived", () -> {
            synchronized (ENDING) {
                late.start();
                awaitBlocked(late);
                sleep(HOLD_MS);
            }
        });
        shortLived.join();
        late.join();
        if (control) {
            call("stopMonitorProfiling");
            call("stopMonitorProfiling");
            contend(UNSEEN, "unseen");
        }

        Method capture = Class.forName("com.corvane.runtime.Callback").getMethod("captureSnapshot", String.class,
                int.class, long.class);
        System.out.println("capture " + capture.invoke(null, args[0], -1, 0L));
        System.out.println("done " + ourEntered);
    }
}
