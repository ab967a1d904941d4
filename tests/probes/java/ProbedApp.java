import java.io.File;
import java.io.FileInputStream;
import java.io.FileOutputStream;
import java.io.IOException;

// A program of known shape for probes: `work` runs a known number of times
// with known arguments, and a file of known size is read in 1000-byte reads.
public class ProbedApp {
    static final int CALLS = 2500;
    static final int FILE_SIZE = 10_000;

    static long work(int n) {
        return (long) n * n;
    }

    public static void main(String[] args) throws IOException {
        long sum = 0;
        for (int i = 1; i <= CALLS; i++) sum += work(i % 100);
        System.out.println("work " + CALLS + " calls, sum " + sum);

        File file = File.createTempFile("probed", ".bin");
        try (FileOutputStream out = new FileOutputStream(file)) {
            out.write(new byte[FILE_SIZE]);
        }
        int reads = 0;
        long bytes = 0;
        byte[] buffer = new byte[1000];
        try (FileInputStream in = new FileInputStream(file)) {
            for (int n; (n = in.read(buffer)) >= 0; reads++) bytes += n;
        }
        file.delete();
        System.out.println("read " + bytes + " bytes in " + reads + " reads");
    }
}
