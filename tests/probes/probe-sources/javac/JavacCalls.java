package javac;

import com.corvane.probes.ClassRef;
import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.MethodSignature;
import java.io.IOException;
import java.io.PrintWriter;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.IdentityHashMap;
import java.util.Map;

// Counts the calls of every method of the compiler. Name and descriptor are
// constants of the calling class, so the same objects come every time: per
// class, identity maps on them lead to the counter.
@MethodPattern("com.sun.tools.javac.*:*(*)")
public class JavacCalls {
    private static final ClassValue<Map<String, Map<String, long[]>>> COUNTS =
            new ClassValue<Map<String, Map<String, long[]>>>() {
        @Override
        protected Map<String, Map<String, long[]>> computeValue(Class<?> type) {
            return new IdentityHashMap<>();
        }
    };
    private static final Map<Class<?>, Map<String, Map<String, long[]>>> CLASSES = new IdentityHashMap<>();

    static {
        Runtime.getRuntime().addShutdownHook(new Thread(JavacCalls::write));
    }

    public static void onEnter(@ClassRef Class<?> type, @MethodName String name, @MethodSignature String descriptor) {
        Map<String, Map<String, long[]>> byName = COUNTS.get(type);
        synchronized (JavacCalls.class) {
            CLASSES.put(type, byName);
            byName.computeIfAbsent(name, k -> new IdentityHashMap<>()).computeIfAbsent(descriptor, k -> new long[1])[0]++;
        }
    }

    // One line a method: class, name, descriptor, calls; into the file the
    // property javac.calls names.
    private static synchronized void write() {
        try (PrintWriter out = new PrintWriter(Files.newBufferedWriter(Paths.get(System.getProperty("javac.calls"))))) {
            for (Map.Entry<Class<?>, Map<String, Map<String, long[]>>> type : CLASSES.entrySet()) {
                for (Map.Entry<String, Map<String, long[]>> name : type.getValue().entrySet()) {
                    for (Map.Entry<String, long[]> descriptor : name.getValue().entrySet()) {
                        out.println(type.getKey().getName() + "\t" + name.getKey() + "\t" + descriptor.getKey() + "\t"
                                + descriptor.getValue()[0]);
                    }
                }
            }
        } catch (IOException e) {
            throw new RuntimeException(e);
        }
    }
}
