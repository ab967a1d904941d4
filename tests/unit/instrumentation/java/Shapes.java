import java.util.ArrayList;
import java.util.List;
import java.util.function.IntFunction;

// A program of many method shapes; rewritten, it must print the same.
public class Shapes {
    interface Greeter {
        String name();

        default String greet(String whom) {
            return "hello " + whom + " from " + name();
        }
    }

    static class Base {
        final Object payload;

        Base(Object payload) {
            this.payload = payload;
        }
    }

    static final class Derived extends Base implements Greeter {
        final int weight;

        Derived(int weight) {
            super(new StringBuilder("w").append(weight > 3 ? weight : -weight));
            this.weight = weight;
        }

        Derived() {
            this(new int[] {1, 2}.length + 5);
        }

        public String name() {
            return "derived" + weight + payload;
        }
    }

    enum Color { RED, GREEN, BLUE }

    static int tableSwitch(int i) {
        switch (i) {
            case 0: return 10;
            case 1: return 11;
            case 2: return 12;
            case 3: return 13;
            default: return -1;
        }
    }

    static String lookupSwitch(int i) {
        switch (i) {
            case -1000: return "a";
            case 7: return "b";
            case 100000: return "c";
            default: return "d";
        }
    }

    static int stringSwitch(String s) {
        switch (s) {
            case "alpha": return 1;
            case "beta": return 2;
            default: return s.length();
        }
    }

    static long loops(int n) {
        long sum = 0;
        for (int i = 0; i < n; i++) {
            for (int j = i; j >= 0; j -= 2) sum += (long) i * j;
        }
        int k = 0;
        do {
            k += 3;
        } while (k < n);
        return sum + k;
    }

    static int thrower(int depth) {
        if (depth == 0) throw new IllegalStateException("deep");
        return thrower(depth - 1) + 1;
    }

    static String exceptions() {
        StringBuilder out = new StringBuilder();
        for (int i = 0; i < 3; i++) {
            try {
                if (i == 1) thrower(4);
                out.append("ok").append(i);
            } catch (IllegalStateException e) {
                out.append("caught:").append(e.getMessage());
            } finally {
                out.append(';');
            }
        }
        try {
            Object o = i2s(3);
            out.append(((Integer) o).intValue());
        } catch (ClassCastException e) {
            out.append("cce");
        }
        return out.toString();
    }

    @Deprecated
    static Object i2s(int i) {
        return "s" + i;
    }

    static Object[] arrays(int n) {
        int[] ints = new int[n];
        String[] strings = new String[n];
        long[][] grid = new long[n][n + 1];
        double[][][] cube = new double[2][][];
        for (int i = 0; i < n; i++) {
            ints[i] = i * i;
            strings[i] = String.valueOf(ints[i]);
            grid[i][i] = ints[i];
        }
        cube[1] = new double[][] {{1.5}};
        return new Object[] {ints.length, strings[n - 1], grid[n - 1][n - 1], cube[1][0][0]};
    }

    // `new` whose arguments branch: frames between `new` and its constructor
    // call hold the uninitialized object.
    static String branchyNew(boolean flag, int v) {
        Object o = new Derived(flag ? v : new Derived(v + 1).weight * 2);
        return new StringBuilder(flag ? "yes" : "no").append(o instanceof Greeter ? ((Greeter) o).greet("x") : "?")
                .toString();
    }

    static synchronized int locked(int v) {
        Object lock = new Object();
        synchronized (lock) {
            return v + (v > 2 ? 1 : 0);
        }
    }

    static double mixed(long a, double b, float c, short d, byte e, char f, boolean g) {
        return g ? a + b + c + d + e + f : -1;
    }

    static int varargs(int... values) {
        int sum = 0;
        for (int v : values) sum += v;
        return sum;
    }

    static int recursion(int n) {
        return n <= 1 ? 1 : n * recursion(n - 1);
    }

    static final List<String> STATIC_LIST = new ArrayList<>();

    static {
        for (Color c : Color.values()) STATIC_LIST.add(c.name().toLowerCase());
    }

    public static void main(String[] args) {
        System.out.println(tableSwitch(2) + " " + tableSwitch(9) + " " + lookupSwitch(7) + lookupSwitch(100000)
                + lookupSwitch(3) + " " + stringSwitch("beta") + stringSwitch("gamma"));
        System.out.println(loops(20));
        System.out.println(exceptions());
        System.out.println(java.util.Arrays.deepToString(arrays(4)));
        System.out.println(branchyNew(true, 5) + " | " + branchyNew(false, 1));
        System.out.println(new Derived().greet("world"));
        System.out.println(locked(5) + " " + mixed(1L, 2.5, 3f, (short) 4, (byte) 5, 'a', true) + " " + varargs(1, 2, 3));
        System.out.println(recursion(10) + " " + STATIC_LIST);
        IntFunction<String> lambda = i -> "lambda" + i + new Derived(i).name();
        System.out.println(lambda.apply(4));
        Runnable anonymous = new Runnable() {
            int count;

            public void run() {
                count += tableSwitch(count);
                System.out.println("anonymous " + count);
            }
        };
        anonymous.run();
        if (args.length > 0) com.corvane.runtime.Callback.report();
    }
}
