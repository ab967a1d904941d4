import java.util.Scanner;

/**
 * A program that runs until its standard input ends, spinning one known
 * method on a thread of its own. Lines on standard input ask for more:
 * "start-threads <port>" calls Core.startProfilerThreads, "deadlock" makes
 * two threads that lock each other out, "oome" fills the heap until it runs
 * out and lets go, "greet <name>" calls greet. Each answer is one line.
 */
public class LiveApp {
    static volatile long sink;

    static void spinForever() {
        long x = 1;
        for (;;) {
            for (int i = 0; i < 100_000; i++) {
                x = x * 31 + i;
            }
            sink += x;
            try {
                Thread.sleep(1);
            } catch (InterruptedException e) {
                return;
            }
        }
    }

    static void deadlock() {
        Object first = new Object();
        Object second = new Object();
        Thread a = new Thread(() -> lockBoth(first, second), "live-deadlock-a");
        Thread b = new Thread(() -> lockBoth(second, first), "live-deadlock-b");
        a.setDaemon(true);
        b.setDaemon(true);
        a.start();
        b.start();
    }

    static void lockBoth(Object outer, Object inner) {
        synchronized (outer) {
            try {
                Thread.sleep(200);
            } catch (InterruptedException e) {
                return;
            }
            synchronized (inner) {
                sink++;
            }
        }
    }

    static String exhaustHeap() {
        java.util.List<long[]> hoard = new java.util.ArrayList<>();
        try {
            for (;;) {
                hoard.add(new long[1 << 16]);
            }
        } catch (OutOfMemoryError e) {
            int blocks = hoard.size();
            hoard = null;
            return "after " + blocks + " blocks";
        }
    }

    static String greet(String name) {
        return "hello " + name;
    }

    public static void main(String[] args) throws Exception {
        Thread spinner = new Thread(LiveApp::spinForever, "live-spinner");
        spinner.setDaemon(true);
        spinner.start();
        System.out.println("ready " + ProcessHandle.current().pid());
        Scanner in = new Scanner(System.in);
        while (in.hasNextLine()) {
            String[] command = in.nextLine().trim().split(" ");
            if (command[0].equals("start-threads")) {
                Object started = Class.forName("com.corvane.runtime.Core")
                        .getMethod("startProfilerThreads", int.class).invoke(null, Integer.parseInt(command[1]));
                System.out.println("started " + started);
            } else if (command[0].equals("oome")) {
                System.out.println("oome " + exhaustHeap());
            } else if (command[0].equals("greet")) {
                System.out.println("greeted " + greet(command[1]));
            } else if (command[0].equals("deadlock")) {
                deadlock();
                System.out.println("deadlocked");
            }
        }
        System.out.println("done");
    }
}
