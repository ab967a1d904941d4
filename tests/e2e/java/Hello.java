// Prints a fixed greeting and its arguments, and does a little of what an
// application does (a thread, a caught exception) so that the agent's event
// handlers run while it is loaded.
public class Hello {
    public static void main(String[] args) throws Exception {
        Thread worker = new Thread(() -> {
            try {
                throw new IllegalStateException("caught on purpose");
            } catch (IllegalStateException expected) {
                // nothing: the exception events are what matters
            }
        }, "e2e-worker");
        worker.start();
        worker.join();
        System.out.println("hello from e2e");
        System.out.println("args: " + String.join(" ", args));
    }
}
