import java.lang.reflect.Method;
import java.util.Scanner;

/**
 * Exceptions of known classes thrown and caught at known places (the
 * comments mark the lines) on WORKERS threads "worker-1" and on: worker N
 * runs N times ROUNDS rounds. One round throws a Plain that its own method
 * catches; a Deep that is rethrown twice on its way up (once by a catch,
 * once by a finally); a Cause that is caught and thrown again as the cause
 * of a Wrapper; and lets the JDK throw and catch a NumberFormatException
 * inside Scanner.hasNextInt. Thread "doomed" lets one Doom go uncaught.
 *
 * Arguments: the snapshot path, then "control" to switch the telemetry
 * through the natives: off, a phase that must not count, on, a clear, and
 * the rounds that count.
 */
public class ExceptionShapes {
    static final int WORKERS = 3;
    static final int ROUNDS = 50;

    static class Plain extends RuntimeException { }
    static class Deep extends Exception { }
    static class Cause extends Exception { }
    static class Wrapper extends RuntimeException {
        Wrapper(Throwable cause) {
            super(cause);
        }
    }
    static class Doom extends RuntimeException { }

    static int ourSink;

    static void plain() {
        try {
            throw new Plain(); // THROW-PLAIN
        } catch (Plain e) { // CATCH-PLAIN
            ourSink++;
        }
    }

    static void deepest() throws Deep {
        throw new Deep(); // THROW-DEEP
    }

    static void rethrowing() throws Deep {
        try {
            deepest();
        } catch (Deep e) {
            ourSink++;
            throw e;
        }
    }

    static void finallyOnTheWay() throws Deep {
        try {
            rethrowing();
        } finally {
            ourSink++;
        }
    }

    static void deep() {
        try {
            finallyOnTheWay();
        } catch (Deep e) { // CATCH-DEEP
            ourSink++;
        }
    }

    static void cause() throws Cause {
        throw new Cause(); // THROW-CAUSE
    }

    static void wrapping() {
        try {
            cause();
        } catch (Cause e) { // CATCH-CAUSE
            throw new Wrapper(e); // THROW-WRAPPER
        }
    }

    static void wrapped() {
        try {
            wrapping();
        } catch (Wrapper e) { // CATCH-WRAPPER
            ourSink++;
        }
    }

    static void insideTheJdk() {
        // The token looks like an int but overflows: parseInt throws, hasNextInt catches.
        if (new Scanner("99999999999999999999").hasNextInt()) {
            ourSink++;
        }
    }

    static void rounds(int count) {
        for (int i = 0; i < count; i++) {
            plain();
            deep();
            wrapped();
            insideTheJdk();
        }
    }

    static void workers(int rounds) throws InterruptedException {
        Thread[] workers = new Thread[WORKERS];
        for (int n = 1; n <= WORKERS; n++) {
            int count = n * rounds;
            workers[n - 1] = new Thread(() -> rounds(count), "worker-" + n);
            workers[n - 1].start();
        }
        for (Thread worker : workers) {
            worker.join();
        }
    }

    static Object call(String name, Class<?>[] types, Object... arguments) throws Exception {
        Method method = Class.forName("com.corvane.runtime.Callback").getMethod(name, types);
        return method.invoke(null, arguments);
    }

    public static void main(String[] args) throws Exception {
        // Whatever the classes need on first use happens here, on another thread.
        Thread warmup = new Thread(() -> rounds(1), "warmup");
        warmup.start();
        warmup.join();
        if (args.length > 1 && args[1].equals("control")) {
            call("stopExceptionProfiling", new Class<?>[0]);
            workers(1);
            call("startExceptionProfiling", new Class<?>[0]);
            workers(1);
            call("clearExceptions", new Class<?>[0]);
        }
        workers(ROUNDS);
        Thread doomed = new Thread(() -> {
            throw new Doom(); // THROW-DOOM
        }, "doomed");
        doomed.setUncaughtExceptionHandler((thread, e) -> System.out.println("uncaught " + e.getClass().getName()));
        doomed.start();
        doomed.join();
        System.out.println("capture " + call("captureSnapshot", new Class<?>[] {String.class, int.class, long.class},
                args[0], -1, 0L));
        System.out.println("done " + ourSink);
    }
}
