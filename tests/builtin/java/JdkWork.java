import java.io.File;
import java.io.FileInputStream;
import java.io.FileNotFoundException;
import java.io.FileOutputStream;
import java.io.InputStream;
import java.io.RandomAccessFile;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.ByteBuffer;
import java.nio.channels.AsynchronousFileChannel;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.Condition;
import java.util.concurrent.locks.ReentrantLock;

/**
 * Work of a known shape on the JDK's files, sockets, processes, threads,
 * folders, naming, locks, asynchronous channels and event queue, in the
 * folder given as the argument.
 */
public class JdkWork {
    public static void main(String[] args) throws Exception {
        File dir = new File(args[0]);
        File data = new File(dir, "data.bin");
        try (FileOutputStream out = new FileOutputStream(data)) {
            out.write(new byte[1000]);
            out.write(7);
            out.write(new byte[100], 0, 50);
        }
        try (FileInputStream in = new FileInputStream(data)) {
            byte[] buffer = new byte[400];
            while (in.read(buffer) > 0) {
                // 400, 400, 251, then the end
            }
            in.read();
        }
        try (RandomAccessFile file = new RandomAccessFile(new File(dir, "random.bin"), "rw")) {
            file.write(new byte[64]);
            file.seek(0);
            file.readFully(new byte[32]);
        }
        try {
            new FileInputStream(new File(dir, "missing.bin")).close();
        } catch (FileNotFoundException expected) {
            // a row with the error
        }
        Path text = dir.toPath().resolve("text.txt");
        Files.write(text, new byte[123]);
        Files.readAllBytes(text);

        try (DirectoryStream<Path> entries = Files.newDirectoryStream(dir.toPath())) {
            int n = 0;
            for (Path entry : entries) {
                n++;
            }
            System.out.println("entries: " + n);
        }

        try (AsynchronousFileChannel channel = AsynchronousFileChannel.open(data.toPath(), StandardOpenOption.READ)) {
            System.out.println("async read: " + channel.read(ByteBuffer.allocate(100), 0).get());
        }

        Process process = new ProcessBuilder("sh", "-c", "exit 3").start();
        System.out.println("exit: " + process.waitFor());

        Thread worker = new Thread(() -> { }, "worker-1");
        worker.start();
        worker.join();

        try (ServerSocket server = new ServerSocket(0)) {
            Thread serving = new Thread(() -> {
                try (Socket client = server.accept()) {
                    client.getOutputStream().write(new byte[300]);
                } catch (Exception e) {
                    throw new RuntimeException(e);
                }
            }, "serving");
            serving.start();
            try (Socket socket = new Socket("127.0.0.1", server.getLocalPort())) {
                InputStream in = socket.getInputStream();
                byte[] buffer = new byte[100];
                while (in.read(buffer) > 0) {
                    // 300 bytes
                }
            }
            serving.join();
        }

        try {
            new javax.naming.InitialContext().lookup("java:comp/env/jdbc/missing");
        } catch (javax.naming.NamingException expected) {
            // a row with the error
        }

        // One wait for a lock held 200 ms, and one timed wait on a condition.
        ReentrantLock lock = new ReentrantLock();
        Condition never = lock.newCondition();
        lock.lock();
        Thread waiting = new Thread(() -> {
            lock.lock();
            lock.unlock();
        }, "waiting");
        waiting.start();
        while (!lock.hasQueuedThread(waiting)) {
            Thread.sleep(1);
        }
        Thread.sleep(200);
        never.await(50, TimeUnit.MILLISECONDS);
        lock.unlock();
        waiting.join();

        java.awt.EventQueue.invokeAndWait(() -> { });
        System.out.println("done");
    }
}
