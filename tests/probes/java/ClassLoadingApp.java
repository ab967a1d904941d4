import java.lang.ref.WeakReference;
import java.net.URL;
import java.net.URLClassLoader;

// A class loaded through a class loader of its own, on the main thread, and
// unloaded with its loader by the collections that follow.
public class ClassLoadingApp {
    public static class Passing {
    }

    public static void main(String[] args) throws Exception {
        URL classes = ClassLoadingApp.class.getProtectionDomain().getCodeSource().getLocation();
        URLClassLoader loader = new URLClassLoader(new URL[] {classes}, null);
        Class<?> passing = Class.forName("ClassLoadingApp$Passing", true, loader);
        System.out.println("own loader: " + (passing.getClassLoader() == loader));
        WeakReference<Class<?>> weak = new WeakReference<>(passing);
        passing = null;
        loader.close();
        loader = null;
        for (int i = 0; i < 50 && weak.get() != null; i++) {
            System.gc();
            Thread.sleep(20);
        }
        System.out.println("unloaded: " + (weak.get() == null));
    }
}
