package com.corvane.live;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.runtime.Protocol;
import com.corvane.testing.AgentJvm;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.PrintWriter;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * The test program LiveApp in a JVM with the agent of the build, in a folder
 * of its own: it runs until closed, and its output (stdout and stderr
 * together) is read line by line as it comes.
 */
final class LiveJvm implements AutoCloseable {
    private static final Pattern LISTENING = Pattern.compile("agent is listening on port (\\d+)");
    private static final long WAIT_SECONDS = 60;

    private final Process myProcess;
    private final PrintWriter myInput;
    private final LinkedBlockingQueue<String> myLines = new LinkedBlockingQueue<>();
    private final StringBuffer myOutput = new StringBuffer();
    private final Path myDir;
    private int myPort = -1;

    private LiveJvm(Process process, Path dir) {
        myProcess = process;
        myDir = dir;
        myInput = new PrintWriter(process.getOutputStream(), true, StandardCharsets.UTF_8);
        Thread reader = new Thread(() -> {
            try (BufferedReader lines = new BufferedReader(
                    new InputStreamReader(process.getInputStream(), StandardCharsets.UTF_8))) {
                for (String line; (line = lines.readLine()) != null; ) {
                    myOutput.append(line).append('\n');
                    myLines.add(line);
                }
            } catch (IOException e) {
                // the process ended
            }
        }, "live-jvm-output");
        reader.setDaemon(true);
        reader.start();
    }

    /** Starts LiveApp with the agent options (a tmpdir in {@code dir} is added) and waits until it runs. */
    static LiveJvm start(Path dir, String options) throws Exception {
        LiveJvm jvm = launch(dir, options);
        jvm.awaitLine("ready");
        if (!options.contains("delay=-1")) {
            Matcher matcher = LISTENING.matcher(jvm.myOutput);
            assertTrue(matcher.find(), "the agent says where it listens:\n" + jvm.myOutput);
            jvm.myPort = Integer.parseInt(matcher.group(1));
        }
        return jvm;
    }

    /** Starts LiveApp and lets it run as it may: for starts that are refused. */
    static LiveJvm launch(Path dir, String options) throws IOException {
        Files.createDirectories(dir.resolve("tmp"));
        return new LiveJvm(AgentJvm.builder(dir, "tmpdir=" + dir.resolve("tmp") + (options.isEmpty() ? "" : "," + options),
                System.getProperty("corvane.live.classes"), "-Xmx64m", "LiveApp").redirectErrorStream(true)
                .directory(dir.toFile()).start(), dir);
    }

    int port() {
        return myPort;
    }

    /** The session id that the agent's answers carry. */
    long sessionId() throws IOException {
        Wire.Reply status = Wire.request(Protocol.PACKET_GET_STATUS_REQ).send(myPort);
        assertEquals(Protocol.PACKET_OK_RESP, status.header());
        return status.l();
    }

    long pid() {
        return myProcess.pid();
    }

    String output() {
        return myOutput.toString();
    }

    /** The next output line that begins with {@code prefix}; earlier lines are passed over. */
    String awaitLine(String prefix) throws InterruptedException {
        long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(WAIT_SECONDS);
        for (;;) {
            String line = myLines.poll(Math.max(1, end - System.nanoTime()), TimeUnit.NANOSECONDS);
            assertNotNull(line, "no line beginning with \"" + prefix + "\" in:\n" + myOutput);
            if (line.startsWith(prefix)) {
                return line;
            }
        }
    }

    void send(String line) {
        myInput.println(line);
    }

    boolean isAlive() {
        return myProcess.isAlive();
    }

    /** Waits for the end of a JVM that ends on its own, and gives its exit code. */
    int waitForExit() throws InterruptedException {
        assertTrue(myProcess.waitFor(WAIT_SECONDS, TimeUnit.SECONDS), "the JVM ends:\n" + myOutput);
        return myProcess.exitValue();
    }

    /** The agent's log files, joined. */
    String log() throws IOException {
        return AgentJvm.log(myDir);
    }

    /** Ends the program through its input; it must exit normally. */
    @Override
    public void close() throws Exception {
        myInput.close();
        if (!myProcess.waitFor(WAIT_SECONDS, TimeUnit.SECONDS)) {
            myProcess.destroyForcibly();
        }
        assertEquals(0, myProcess.waitFor(), "LiveApp exits normally:\n" + myOutput);
    }
}
