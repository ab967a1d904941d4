import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.Stream;

// Loads and links every class of a module from a folder of class files, so
// that the verifier sees each of them, run or not.
public class LinkAll {
    public static void main(String[] args) throws IOException {
        Module module = ModuleLayer.boot().findModule(args[0]).orElseThrow();
        Path root = Path.of(args[1]);
        List<String> names;
        try (Stream<Path> files = Files.walk(root)) {
            names = files.map(p -> root.relativize(p).toString())
                    .filter(n -> n.endsWith(".class") && !n.equals("module-info.class"))
                    .map(n -> n.substring(0, n.length() - 6).replace('/', '.'))
                    .sorted().collect(Collectors.toList());
        }
        int linked = 0, failed = 0;
        for (String name : names) {
            try {
                Class<?> c = Class.forName(module, name);
                if (c == null) throw new ClassNotFoundException(name);
                c.getDeclaredMethods();  // links, and so verifies
                linked++;
            } catch (Throwable t) {
                failed++;
                System.out.println("FAIL " + name + ": " + t);
            }
        }
        System.out.println("linked " + linked + " classes, " + failed + " failed");
        System.exit(failed == 0 ? 0 : 1);
    }
}
