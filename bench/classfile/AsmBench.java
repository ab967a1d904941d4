import java.util.List;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassWriter;

// The same round trip with ASM: ClassReader with expanded frames into a
// ClassWriter that encodes them again, timed by AsmCorpus.
public class AsmBench {
    public static void main(String[] args) throws Exception {
        AsmCorpus.measure(args, AsmBench::pass);
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
