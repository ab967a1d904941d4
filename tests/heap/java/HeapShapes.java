import java.io.InputStream;
import java.lang.ref.Reference;
import java.lang.reflect.Method;
import java.util.concurrent.CountDownLatch;

/**
 * A heap of known shape for the memory snapshot tests. Arguments: the
 * snapshot path, the JNI library, and "native" to capture through the
 * agent's native (flag 1, memory) or "exit" to leave it to onexit=memory.
 */
public class HeapShapes {
    public static final int CHAIN = 1000;

    static class Node {
        Node next;
        int value;

        Node(int value) {
            this.value = value;
        }
    }

    static class Base {
        long baseLong;
        Object baseRef;
    }

    static class Derived extends Base {
        int derivedInt;
        Object derivedRef;
    }

    static class Prims {
        boolean z = true;
        byte b = -5;
        char c = 'q';
        short s = -300;
        int i = 123456789;
        long j = 0x1122334455667788L;
        float f = 1.5f;
        double d = -2.25;
    }

    static class Empty {
    }

    static class StackOnly {
        int mark = 5;
    }

    static class JniOnly {
        int mark = 77;
    }

    interface Marked {
        int MARK = 3;
    }

    static class Statics implements Marked {
        static long sLong = 0x0102030405060708L;
        static int sInt = -42;
        static Object sRef;
        static double sDouble = 3.5;
        static boolean sBool = true;
        static short sShort = -7;
    }

    public static class Loadable {
        public static Object held;
    }

    /** Defines Loadable a second time, so that the defined class holds the loader. */
    static class ShapeLoader extends ClassLoader {
        ShapeLoader() {
            super(HeapShapes.class.getClassLoader());
        }

        @Override
        protected Class<?> loadClass(String name, boolean resolve) throws ClassNotFoundException {
            if (!name.equals("HeapShapes$Loadable")) {
                return super.loadClass(name, resolve);
            }
            try (InputStream in = getParent().getResourceAsStream("HeapShapes$Loadable.class")) {
                byte[] bytes = in.readAllBytes();
                return defineClass(name, bytes, 0, bytes.length);
            } catch (java.io.IOException e) {
                throw new ClassNotFoundException(name, e);
            }
        }
    }

    static Node chain;
    static Node cycle;
    static Derived derived;
    static Prims prims;
    static Empty empty;
    static Object[] arrays;
    static Object[] noObjects = new Object[0];
    static Class<?> loaded;

    static native void holdGlobal(Object object);

    public static void main(String[] args) throws Exception {
        System.load(args[1]);
        for (int i = CHAIN - 1; i >= 0; i--) {
            Node node = new Node(i);
            node.next = chain;
            chain = node;
        }
        Node a = new Node(1001);
        Node b = new Node(1002);
        Node c = new Node(1003);
        a.next = b;
        b.next = c;
        c.next = a;
        cycle = a;
        derived = new Derived();
        derived.baseLong = -1L;
        derived.baseRef = "base";
        derived.derivedInt = 0x7F00FF01;
        derived.derivedRef = derived;
        prims = new Prims();
        empty = new Empty();
        Statics.sRef = new int[] {4, 5, 6};
        arrays = new Object[] {
            new boolean[] {true, false, true},
            new byte[] {1, -2, 127},
            new char[] {'a', 'b', '\u20ac'},
            new short[] {-1, 2, 32767},
            new int[] {Integer.MIN_VALUE, 0, Integer.MAX_VALUE},
            new long[] {Long.MIN_VALUE, 1L, Long.MAX_VALUE},
            new float[] {1.25f, -0.5f, Float.NaN},
            new double[] {Math.PI, -0.0, Double.MAX_VALUE},
            new Object[] {chain, null, "text"},
            new int[0],
        };
        holdGlobal(new JniOnly());
        loaded = new ShapeLoader().loadClass("HeapShapes$Loadable");
        loaded.getField("held").set(null, new int[] {9, 8, 7});

        CountDownLatch started = new CountDownLatch(1);
        CountDownLatch release = new CountDownLatch(1);
        Thread holder = new Thread(() -> {
            StackOnly local = new StackOnly();
            started.countDown();
            try {
                release.await();
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
            Reference.reachabilityFence(local);
        }, "stack-holder");
        holder.setDaemon(true);
        holder.start();
        started.await();
        if (args[2].equals("native")) {
            Method capture = Class.forName("com.corvane.runtime.Callback").getMethod("captureSnapshot", String.class,
                    int.class, long.class);
            System.out.println("capture " + capture.invoke(null, args[0], -1, 1L));
            release.countDown();
            holder.join();
        }
        System.out.println("done " + Marked.MARK);
    }
}
