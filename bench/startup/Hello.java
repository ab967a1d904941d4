// The smallest program worth starting: the JVM's own start-up is what is measured.
public class Hello {
    public static void main(String[] args) {
        System.out.println("hello");
    }
}
