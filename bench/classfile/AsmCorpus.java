import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.function.ToLongFunction;

// The ASM side of the class-file benchmarks: loads the classes named in a
// list file into memory, runs warm-up passes over them, then timed passes,
// and prints the median pass and the bytes one pass wrote.
// Arguments: <list file> <passes> <warm-ups>.
public final class AsmCorpus {
    private AsmCorpus() {
    }

    // `pass` returns the bytes it wrote, which also keeps the JIT from dropping its work.
    public static void measure(String[] args, ToLongFunction<List<byte[]>> pass) throws Exception {
        List<byte[]> classes = new ArrayList<>();
        long bytes = 0;
        for (String path : Files.readAllLines(Path.of(args[0]))) {
            byte[] b = Files.readAllBytes(Path.of(path));
            classes.add(b);
            bytes += b.length;
        }
        int passes = Integer.parseInt(args[1]);
        int warmups = Integer.parseInt(args[2]);
        long written = 0;
        for (int i = 0; i < warmups; i++) written = pass.applyAsLong(classes);
        double[] seconds = new double[passes];
        for (int i = 0; i < passes; i++) {
            long start = System.nanoTime();
            written = pass.applyAsLong(classes);
            seconds[i] = (System.nanoTime() - start) / 1e9;
        }
        Arrays.sort(seconds);
        double median = seconds[passes / 2];
        System.out.println("classes " + classes.size());
        System.out.printf("classes_per_second %.0f%n", classes.size() / median);
        System.out.printf("mb_per_second %.1f%n", bytes / median / 1e6);
        System.out.println("written " + written);
    }
}
