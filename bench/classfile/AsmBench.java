import java.util.List;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassWriter;

// The round trip with ASM, in one of two ways, timed by AsmCorpus:
//   copy  ClassWriter(reader, 0): the constant pool and every unchanged
//         method are copied as bytes, as our toolkit copies the pool and
//         writes the code it read;
//   full  ClassReader with expanded frames into a fresh ClassWriter: every
//         class decoded and encoded again, frames included.
// Arguments: <list file> <passes> <warm-ups> <copy|full>.
public class AsmBench {
    public static void main(String[] args) throws Exception {
        boolean copy = switch (args[3]) {
            case "copy" -> true;
            case "full" -> false;
            default -> throw new IllegalArgumentException("mode must be copy or full: " + args[3]);
        };
        AsmCorpus.measure(args, classes -> copy ? copyPass(classes) : fullPass(classes));
    }

    static long copyPass(List<byte[]> classes) {
        long written = 0;
        for (byte[] b : classes) {
            ClassReader reader = new ClassReader(b);
            ClassWriter writer = new ClassWriter(reader, 0);
            reader.accept(writer, 0);
            written += writer.toByteArray().length;
        }
        return written;
    }

    static long fullPass(List<byte[]> classes) {
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
