import java.util.zip.Adler32;

/**
 * Natives of a JNI library built by the tests (argument: its path) and of the
 * JDK, called a known number of times on the thread "natives-worker":
 * body calls add (static), scale (public), echoed, which calls echo
 * (private), callBack, which calls fromNative back from native code, and
 * Adler32.update(int), which calls its private native.
 */
public class NativeShapes {
    static final int ADDS = 30_000;
    static final int SCALES = 20_000;
    static final int ECHOES = 10_000;
    static final int CALL_BACKS = 10;
    static final int CALLS_FROM_NATIVE = 50;
    static final int ADLER_UPDATES = 5_000;

    static long fromNativeCalls;

    static native long add(int a, long b);

    public native double scale(float f, double d, byte b);

    private native String echo(String text);

    static native void callBack(int times);

    // A call of its own keeps it from being too small to trace.
    static void fromNative() {
        fromNativeCalls = Math.addExact(fromNativeCalls, 1);
    }

    String echoed(String text) {
        return echo(text);
    }

    static void body() {
        NativeShapes shapes = new NativeShapes();
        long sum = 0;
        for (int i = 0; i < ADDS; i++) {
            sum = add(i, sum);
        }
        double scaled = 0;
        for (int i = 0; i < SCALES; i++) {
            scaled += shapes.scale(0.5f, i, (byte) 1);
        }
        int echoed = 0;
        for (int i = 0; i < ECHOES; i++) {
            echoed += shapes.echoed("x").length();
        }
        for (int i = 0; i < CALL_BACKS; i++) {
            callBack(CALLS_FROM_NATIVE);
        }
        Adler32 adler = new Adler32();
        for (int i = 0; i < ADLER_UPDATES; i++) {
            adler.update(i);
        }
        System.out.println("sum " + sum + " scaled " + scaled + " echoed " + echoed + " fromNative " + fromNativeCalls
                + " adler " + adler.getValue());
    }

    public static void main(String[] args) throws Exception {
        System.load(args[0]);
        Thread worker = new Thread(NativeShapes::body, "natives-worker");
        worker.start();
        worker.join();
    }
}
