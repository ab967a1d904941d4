// A class that an older compiler target accepts: version 51 class files.
public class Legacy {
    private int count;

    public Legacy(int start) {
        count = start < 0 ? 0 : start;
    }

    public long sum(int[] values, long base) {
        long s = base;
        for (int i = 0; i < values.length; i++) {
            if (values[i] > count) s += values[i];
        }
        return s;
    }

    public String kind(String s) {
        switch (s) {
            case "x": return "X";
            default: return s == null ? "" : s;
        }
    }
}
