import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassWriter;

// The same round trip with ASM: ClassReader with expanded frames into a
// ClassWriter that encodes them again. Warmed up, median of the passes.
public class AsmBench {
    public static void main(String[] args) throws Exception {
        List<byte[]> classes = new ArrayList<>();
        long bytes = 0;
        for (String path : Files.readAllLines(Path.of(args[0]))) {
            byte[] b = Files.readAllBytes(Path.of(path));
            classes.add(b);
            bytes += b.length;
        }
        int passes = Integer.parseInt(args[1]);
        int warmups = Integer.parseInt(args[2]);
        long sink = 0;
        for (int i = 0; i < warmups; i++) sink += pass(classes);
        double[] seconds = new double[passes];
        for (int i = 0; i < passes; i++) {
            long start = System.nanoTime();
            sink += pass(classes);
            seconds[i] = (System.nanoTime() - start) / 1e9;
        }
        Arrays.sort(seconds);
        double median = seconds[passes / 2];
        System.out.println("classes " + classes.size());
        System.out.printf("classes_per_second %.0f%n", classes.size() / median);
        System.out.printf("mb_per_second %.1f%n", bytes / median / 1e6);
        System.out.println("sink " + sink);
    }

    static long pass(List<byte[]> classes) {
        long written = 0;
        for (byte[] b : classes) {
            ClassReader reader = new ClassReader(b);
            ClassWriter writer = new ClassWriter(0);
            reader.accept(writer, ClassReader.EXPAND_FRAMES);
            written += writer.toByteArray().length;
        }
        return written;
    }
}
