package moduled;

/** A module's main class, loaded by JBoss Modules: rewritten, it must still find the runtime classes. */
public class ModuleWork {
    static int work(int n) {
        int sum = 0;
        for (int i = 0; i < n; i++) {
            sum += i;
        }
        return sum;
    }

    public static void main(String[] args) {
        System.out.println("module work " + work(100));
    }
}
