import java.io.Serializable;
import java.util.ArrayList;
import java.util.List;
import java.util.function.Supplier;

// Small classes with the shapes the toolkit must handle: branches and loops
// (stack map frames), switches, exception handlers, constructors, longs and
// doubles in locals, lambdas, inner classes, annotations and generics.
public class Seeds implements Serializable {
    private long total = 5L;
    private final double ratio = 1.5;
    static final String NAME = "seeds";

    @Deprecated
    public Seeds() {
        this(3);
    }

    Seeds(int start) {
        super();
        total = start > 2 ? start : -start;
    }

    int branches(int a, long b, double c, String s) {
        int r = 0;
        for (int i = 0; i < a; i++) {
            if (i % 3 == 0 && s != null) r += i;
            else if (b > c) r -= 1;
        }
        return r;
    }

    String switches(int k, String s) {
        switch (k) {
            case 1: return "one";
            case 2: case 3: return "few";
            case 100: return "many";
            default: break;
        }
        switch (s) {
            case "a": return "A";
            case "b": return "B";
            default: return s;
        }
    }

    int handlers(String text) {
        try {
            return Integer.parseInt(text);
        } catch (NumberFormatException e) {
            return -1;
        } finally {
            total++;
        }
    }

    Object allocations(int n) {
        Object[] objects = new Object[n];
        int[][] grid = new int[n][n + 1];
        objects[0] = new StringBuilder(n > 0 ? "x" : "y").append(grid.length);
        return objects;
    }

    synchronized List<Supplier<String>> lambdas(String prefix) {
        List<Supplier<String>> list = new ArrayList<>();
        for (int i = 0; i < 3; i++) {
            final int j = i;
            list.add(() -> prefix + j);
        }
        return list;
    }

    class Inner {
        int value() {
            return (int) total;
        }
    }

    interface Shape {
        default double area() {
            return 0;
        }
    }

    enum Color { RED, GREEN }
}
