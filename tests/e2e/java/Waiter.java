import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;

// Stays alive until the file named by its argument exists, so that a test can
// attach to it; then starts a thread and ends normally. Gives up after a
// minute with exit code 2.
public class Waiter {
    public static void main(String[] args) throws Exception {
        Path stopFile = Paths.get(args[0]);
        System.out.println("ready");
        System.out.flush();
        long deadline = System.currentTimeMillis() + 60_000;
        while (!Files.exists(stopFile)) {
            if (System.currentTimeMillis() > deadline) {
                System.out.println("gave up waiting");
                System.exit(2);
            }
            Thread.sleep(10);
        }
        Thread worker = new Thread(() -> System.out.println("worker ran"), "e2e-after-attach");
        worker.start();
        worker.join();
        System.out.println("finished");
    }
}
