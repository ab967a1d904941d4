/** The benchmark's target: a JVM that does nothing until its input ends. */
public class Idle {
    public static void main(String[] args) throws Exception {
        System.out.println("ready");
        while (System.in.read() >= 0) {
            // waiting
        }
    }
}
