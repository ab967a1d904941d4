package targets;

public class Calc extends Base {
    final int factor;
    private final Object lock = new Object();

    public Calc(int factor) {
        super(factor > 0 ? "positive" : "other");
        this.factor = factor;
    }

    public Calc() {
        this(new int[] {1, 2}.length + 5);
    }

    public int triple(int x) {
        return 3 * x;
    }

    public static int pick(int i) {
        switch (i) {
            case 0: return 10;
            case 1: return 11;
            case 2: return 12;
            default:
                if (i > 5) return -1;
                return 0;
        }
    }

    public long deposit(long amount, double rate) {
        long result = amount + (long) (amount * rate);
        return result + factor;
    }

    public int assign(int x) {
        x = x * 2;
        return x + 1;
    }

    public String scale(int a, long b, double c, String d) {
        return a + "/" + b + "/" + c + "/" + d;
    }

    public static String widen(int a, int b, boolean c, float d) {
        return a + "," + b + "," + c + "," + d;
    }

    public String handled(String s) {
        try {
            return s.toUpperCase();
        } catch (NullPointerException e) {
            return "none";
        }
    }

    public String risky(String s) {
        if (s.equals("boom")) throw new IllegalStateException("bad " + s);
        return s;
    }

    public String fragile(String s) {
        if (s.equals("boom")) throw new IllegalArgumentException("fragile " + s);
        return s;
    }

    public int loop(int n) {
        int sum = 0;
        for (int i = 0; i < n; i++) {
            if (i == 3) return sum;
            sum += i;
        }
        return sum;
    }

    public int sync(int v) {
        synchronized (lock) {
            return v * factor;
        }
    }
}
