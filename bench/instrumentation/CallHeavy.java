// Many small methods that do real work and call each other: the shape in
// which per-call instrumentation costs the most. Prints the time of the
// measured rounds, after warm-up rounds, in nanoseconds.
public class CallHeavy {
    static int mix(int a, int b) {
        int x = a * 31 + b;
        x ^= x >>> 7;
        return x + (a & 0xff) - (b | 3);
    }

    static long step(long acc, int i) {
        int v = mix((int) acc, i);
        if ((v & 1) == 0) return acc + twice(v);
        return acc - half(v) + 1;
    }

    static int twice(int v) {
        int r = v << 1;
        return r == 0 ? mix(v, 3) : r ^ (v >>> 3);
    }

    static int half(int v) {
        int r = v >> 1;
        return r > 1000 ? mix(r, v) : r + (v & 7);
    }

    static final class Point {
        final int x;
        final int y;

        Point(int x, int y) {
            this.x = x;
            this.y = y;
        }

        int dot(Point o) {
            return x * o.x + y * o.y + mix(x, o.y);
        }
    }

    static long round(int n) {
        long acc = 7;
        Point p = new Point(3, 4);
        for (int i = 0; i < n; i++) {
            acc = step(acc, i);
            acc += p.dot(new Point(i, (int) acc));
        }
        return acc;
    }

    public static void main(String[] args) {
        int rounds = Integer.parseInt(args[0]);
        long sink = 0;
        for (int i = 0; i < rounds; i++) sink += round(1_000_000);
        long start = System.nanoTime();
        for (int i = 0; i < rounds; i++) sink += round(1_000_000);
        System.out.println((System.nanoTime() - start) + " " + (sink == 42 ? "!" : ""));
    }
}
