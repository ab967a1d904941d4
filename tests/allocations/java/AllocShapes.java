import java.lang.reflect.Method;

/**
 * A program of known allocation shape. Three worker threads, one after the
 * other, allocate known classes at known sites in known numbers: small
 * objects, medium objects kept alive, large arrays, arrays of every element
 * kind and of several dimensions, and objects made by native code through
 * JNI (when the library is given). A thread that ends leaves objects that
 * die later; the main thread makes objects that die while it runs. Then
 * the program captures a snapshot through the agent's native.
 *
 * Every allocating loop makes objects of its site alone, and a multiple of
 * ten of them, so that recording one object in ten records exactly a tenth.
 *
 * Arguments: the snapshot path, then the JNI library's path or "-".
 */
public class AllocShapes {
    static final int[] SMALLS = {1000, 2000, 3000};
    static final int MEDIUMS = 500;
    static final int LARGES = 20;
    static final int LARGE_SIZE = 8192;
    static final int ARRAY_ROUNDS = 50;
    static final int NATIVE_ROUNDS = 100;
    static final int KEEPERS = 300;
    static final int TEMPS = 400;
    static final int LIFE_MS = 200;
    static final int LEAF_CALLS = 1000;

    static class Small {
        int value;
    }

    static class Medium {
        long a;
        long b;
        Object ref;
    }

    static class Keeper {
        long stamp;
    }

    static class Temp {
        int value;
    }

    static class NativeMade {
        int value;
    }

    static volatile Object sink;
    static volatile long sum;
    static Object[] keepers;
    static final Object[] mediums = new Object[MEDIUMS * 3];
    static final Object[] nativeKept = new Object[NATIVE_ROUNDS / 2 * 3];
    static boolean withNative;

    static native void makeNative(int rounds, Class<?> made, Object[] keep);

    static void smalls(int count) {
        for (int i = 0; i < count; i++) {
            sink = new Small();
        }
    }

    static void mediums(int count, int at) {
        for (int i = 0; i < count; i++) {
            mediums[at + i] = new Medium();
        }
    }

    static void larges(int count) {
        for (int i = 0; i < count; i++) {
            sink = new byte[LARGE_SIZE];
        }
    }

    // Twelve arrays a round; the multi-dimensional ones made by one instruction each.
    static void arrays(int rounds) {
        for (int i = 0; i < rounds; i++) {
            sink = new boolean[3];
            sink = new byte[3];
            sink = new char[3];
            sink = new short[3];
            sink = new int[3];
            sink = new long[3];
            sink = new float[3];
            sink = new double[3];
            sink = new String[3];
            sink = new int[2][3];
            sink = new Small[2][2][];
            sink = new long[2][2][2];
        }
    }

    static int leaf(int x) {
        int h = x;
        for (int i = 0; i < 3; i++) {
            h = h * 31 + i;
        }
        return h;
    }

    static int branch(int depth) {
        if (depth == 0) {
            return leaf(depth);
        }
        return branch(depth - 1) + leaf(depth);
    }

    // Calls of known number: leaf LEAF_CALLS + 4 times a worker, branch 4 times.
    static void calls() {
        for (int i = 0; i < LEAF_CALLS; i++) {
            sum += leaf(i);
        }
        sum += branch(3);
    }

    static void work(int index) {
        smalls(SMALLS[index]);
        mediums(MEDIUMS, index * MEDIUMS);
        larges(LARGES);
        arrays(ARRAY_ROUNDS);
        if (withNative) {
            makeNative(NATIVE_ROUNDS, NativeMade.class, nativeKept);
        }
        calls();
    }

    static void keep() {
        keepers = new Object[KEEPERS];
        for (int i = 0; i < KEEPERS; i++) {
            keepers[i] = new Keeper();
        }
    }

    // Objects that live at least LIFE_MS and die while the thread runs.
    static void temps() throws InterruptedException {
        Object[] temps = new Object[TEMPS];
        for (int i = 0; i < TEMPS; i++) {
            temps[i] = new Temp();
        }
        Thread.sleep(LIFE_MS);
        sink = temps;
        sink = null;
    }

    static void runThread(String name, Runnable body) throws InterruptedException {
        Thread thread = new Thread(body, name);
        thread.start();
        thread.join();
    }

    static String capture(String path) throws Exception {
        Method capture = Class.forName("com.corvane.runtime.Callback").getMethod("captureSnapshot", String.class,
                int.class, long.class);
        return (String) capture.invoke(null, path, -1, 0L);
    }

    // The classes are loaded and the native linked here, so that what that makes falls to main.
    static void prepare() {
        if (withNative) {
            makeNative(1, NativeMade.class, new Object[1]);
        }
        sink = new Small();
        sink = new Medium();
        sink = new Keeper();
        sink = new Temp();
        sink = new NativeMade();
        sink = new byte[1];
        arrays(1);
    }

    public static void main(String[] args) throws Exception {
        if (!args[1].equals("-")) {
            System.load(args[1]);
            withNative = true;
        }
        prepare();
        for (int i = 0; i < SMALLS.length; i++) {
            int index = i;
            runThread("alloc-" + (i + 1), () -> work(index));
        }
        // The ender's objects outlive it by LIFE_MS at least, then die.
        runThread("ender", AllocShapes::keep);
        Thread.sleep(LIFE_MS);
        keepers = null;
        temps();
        for (int i = 0; i < 3; i++) {
            System.gc();
            Thread.sleep(100);
        }
        // ObjectFree events come after the collection, from a thread of the JVM.
        Thread.sleep(500);
        System.out.println("capture " + capture(args[0]));
        System.out.println("done " + sum);
    }
}
