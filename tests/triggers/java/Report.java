/** Renders two pages, a third of a second of work each, for a method trigger to sample. */
public class Report {
    static volatile long sink;

    static void render(int page) {
        long end = System.nanoTime() + 300_000_000L;
        long x = page;
        while (System.nanoTime() < end) {
            x = x * 31 + 7;
        }
        sink += x;
    }

    public static void main(String[] args) {
        for (int page = 1; page <= 2; page++) {
            render(page);
        }
        System.out.println("rendered");
    }
}
