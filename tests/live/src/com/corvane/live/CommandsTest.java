package com.corvane.live;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.Profile;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.testing.ToolRun;
import java.net.ServerSocket;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.regex.Pattern;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The corvane commands that control a running JVM, on a real one. */
class CommandsTest {
    @TempDir
    static Path ourDir;
    private static LiveJvm ourJvm;
    private static String ourName;

    @BeforeAll
    static void start() throws Exception {
        ourName = "LiveCommands" + ProcessHandle.current().pid();
        ourJvm = LiveJvm.start(ourDir, "sessionname=" + ourName + ",telemetryperiod=200,dir=" + ourDir.resolve("snaps"));
    }

    @AfterAll
    static void stop() throws Exception {
        ourJvm.close();
    }

    private static ToolRun ok(String... args) {
        ToolRun result = ToolRun.of(args);
        assertEquals(0, result.code(), String.join(" ", args) + ":\n" + result.out() + result.err());
        return result;
    }

    /** One line on stderr, a non-zero code. */
    private static void assertFailsWith(String message, String... args) {
        ToolRun result = ToolRun.of(args);
        assertEquals(1, result.code(), result.out() + result.err());
        assertEquals("corvane: " + message + "\n", result.err());
    }

    @Test
    void listShowsPidSessionPortAndModes() {
        String out = ok("list").out();
        assertTrue(out.startsWith("PID "), out);
        assertTrue(Pattern.compile("(?m)^" + ourJvm.pid() + " +" + ourName + " +" + ourJvm.port() + " +idle$")
                .matcher(out).find(), out);
    }

    @Test
    void startStopAndClearByNameOrPid() {
        String pid = String.valueOf(ourJvm.pid());
        assertEquals("corvane: sampling started in process " + pid + " (" + ourName + ")\n",
                ok("start", ourName, "--sampling").out());
        assertTrue(ok("status", pid).out().contains("\nCPU              sampling\n"));
        assertTrue(ok("list").out().contains(" sampling\n"));
        assertFailsWith("process " + pid + " refused: Cannot start CPU tracing: CPU profiling (sampling) already"
                + " started", "start", pid, "--tracing");
        assertEquals("corvane: sampling stopped in process " + pid + " (" + ourName + ")\n", ok("stop", pid).out());
        assertEquals("corvane: nothing to stop: process " + pid + " (" + ourName + ") records nothing\n",
                ok("stop", pid).err());
        assertEquals("corvane: recorded data cleared in process " + pid + " (" + ourName + ")\n",
                ok("clear", ourName).out());
        ToolRun noMode = ToolRun.of("start", pid);
        assertEquals(2, noMode.code());
    }

    @Test
    void monitorProfilingStartsAndStops() {
        String pid = String.valueOf(ourJvm.pid());
        assertEquals("corvane: monitor profiling started in process " + pid + " (" + ourName + ")\n",
                ok("start", pid, "--monitors").out());
        assertTrue(ok("status", pid).out().contains("\nMonitors         on\n"));
        assertTrue(ok("list").out().contains(" monitors\n"));
        assertFailsWith("process " + pid + " refused: Already started", "start", pid, "--monitors");
        assertEquals("corvane: monitor profiling stopped in process " + pid + " (" + ourName + ")\n",
                ok("stop", pid, "--monitors").out());
        assertTrue(ok("status", pid).out().contains("\nMonitors         off\n"));
    }

    @Test
    void statusTellsTheAgentAndItsModes() {
        String out = ok("status", ourName).out();
        for (String line : new String[] {"Process          " + ourJvm.pid() + " (session " + ourName + ")",
            "Port             " + ourJvm.port(), "Agent            Corvane Java Profiler 2019.8-b109, loaded on start",
            "Snapshots        " + ourDir.resolve("snaps"), "Exceptions       on", "Deadlocks        none found"}) {
            assertTrue(out.contains(line + "\n"), line + " in:\n" + out);
        }
    }

    @Test
    void snapshotIsCapturedAndFetched() throws Exception {
        ok("start", ourName, "--sampling");
        Thread.sleep(1500);
        Path target = ourDir.resolve("fetched.snapshot");
        ToolRun result = ok("snapshot", ourName, "-o", target.toString());
        ok("stop", ourName);
        assertEquals("corvane: snapshot written: " + target + "  (corvane report " + target + ")\n", result.err());
        Profile profile = Profile.build(SnapshotReader.read(target));
        assertTrue(profile.hotSpots().stream().anyMatch(spot -> spot.name().startsWith("LiveApp.spinForever")),
                profile.hotSpots().toString());
        byte[] remote = Files.readAllBytes(Files.list(ourDir.resolve("snaps")).filter(p -> p.toString()
                .endsWith(".snapshot")).findFirst().orElseThrow());
        assertEquals(remote.length, Files.size(target));
    }

    @Test
    void threadsAndTelemetryShowTheJvm() throws Exception {
        String threads = ok("threads", ourName).out();
        assertTrue(threads.contains("\"live-spinner\" #") && threads.contains("LiveApp.spinForever(LiveApp.java:"), threads);

        Thread.sleep(600);
        String sample = ok("telemetry", ourName).out();
        assertTrue(Pattern.compile("(?m)^Heap +\\d+\\.\\d MB used of \\d+\\.\\d MB committed, at most \\d+\\.\\d MB$")
                .matcher(sample).find(), sample);
        assertTrue(Pattern.compile("(?m)^Threads +\\d+ live, \\d+ daemon").matcher(sample).find(), sample);

        String watched = ok("telemetry", ourName, "--watch", "--samples", "3").out();
        String[] lines = watched.split("\n");
        assertEquals(4, lines.length, watched);
        assertTrue(lines[0].trim().startsWith("UPTIME"));
    }

    @Test
    void whatCannotBeReachedIsOneLine() throws Exception {
        assertFailsWith("no such session: no-such-app (see 'corvane list')", "status", "no-such-app");
        assertFailsWith("process 1 runs no profiler agent (see 'corvane list')", "stop", "1");
        Process ended = new ProcessBuilder("true").start();
        ended.waitFor();
        assertFailsWith("no such process: " + ended.pid(), "threads", String.valueOf(ended.pid()));
        int closed;
        try (ServerSocket probe = new ServerSocket(0)) {
            closed = probe.getLocalPort();
        }
        AgentException refused = org.junit.jupiter.api.Assertions.assertThrows(AgentException.class,
                () -> new AgentClient(closed).status());
        assertTrue(refused.getMessage().startsWith("cannot connect to the agent on port " + closed + ": "),
                refused.getMessage());
    }
}
