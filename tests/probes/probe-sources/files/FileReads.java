package files;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;

// The reads into 1000-byte buffers by FileInputStream.read(byte[]); a class
// of the JDK, so the probe goes on the boot class path.
@MethodPattern("java.io.FileInputStream:read(byte[]) int")
public class FileReads {
    static long reads;
    static long bytes;

    static {
        Runtime.getRuntime().addShutdownHook(new Thread(() -> System.out.println("probe: " + reads + " reads, " + bytes + " bytes")));
    }

    public static synchronized int onReturn(@Param(1) byte[] buffer, @ReturnValue int n) {
        if (buffer.length == 1000) {
            reads++;
            if (n > 0) bytes += n;
        }
        return n;
    }
}
