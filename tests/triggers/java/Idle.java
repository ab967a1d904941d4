/** Runs for the milliseconds of its argument, printing "started" and "done", so that triggers have time to fire. */
public class Idle {
    public static void main(String[] args) throws Exception {
        System.out.println("started");
        Thread.sleep(Long.parseLong(args[0]));
        System.out.println("done");
    }
}
