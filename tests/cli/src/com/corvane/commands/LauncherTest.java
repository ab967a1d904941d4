package com.corvane.commands;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.Samples;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * The installed tool, bin/corvane, as a person runs it. "run" starts a
 * stand-in for java that shows what it was given, writes a snapshot where
 * the agent would and exits as told; "attach" goes to a real JVM.
 */
class LauncherTest {
    private static final Path DIST = Paths.get(System.getProperty("corvane.dist", "build/dist"));

    @TempDir
    Path dir;
    Path fakeJava;
    Path fakeLibrary;
    Path log;

    record Result(int code, String out, String err) {
        List<String> errLines() {
            return err.isEmpty() ? List.of() : Arrays.asList(err.split("\n"));
        }
    }

    @BeforeEach
    void standIns() throws IOException {
        Path bin = Files.createDirectories(dir.resolve("jdk/bin"));
        fakeJava = bin.resolve("java");
        Files.writeString(fakeJava, String.join("\n",
                "#!/bin/sh",
                "agent=$1; shift",
                "case \"$agent\" in -agentpath:*) ;; *) echo \"no agent: $agent\" >&2; exit 99;; esac",
                "opts=${agent#*=}",
                "echo \"[Corvane Java Profiler 2019.8-b109] Log file: $FAKE_LOG\" >&2",
                "echo \"args: $*\"",
                "echo \"options: $opts\"",
                "dir=$(echo \"$opts\" | tr ',' '\\n' | sed -n 's/^dir=//p' | tail -1)",
                "[ -n \"$FAKE_SNAPSHOT\" ] && cp \"$FAKE_SNAPSHOT\" \"$dir/TestApp-2024-01-01-shutdown.snapshot\"",
                "[ -n \"$FAKE_REFUSE\" ] && echo 'Cannot start: invalid option: bogus' >&2",
                "cat",
                "exit ${FAKE_EXIT:-0}", ""));
        Files.setPosixFilePermissions(fakeJava, PosixFilePermissions.fromString("rwxr-xr-x"));
        fakeLibrary = Files.writeString(dir.resolve("libcorvane.so"), "not really a library");
        log = Files.writeString(dir.resolve("TestApp-1.log"), "agentInit: Core.init() called\n");
    }

    private Result corvane(Map<String, String> env, String stdin, String... args) throws Exception {
        List<String> command = new ArrayList<>();
        command.add(DIST.resolve("bin/corvane").toString());
        command.addAll(Arrays.asList(args));
        ProcessBuilder builder = new ProcessBuilder(command).directory(dir.toFile());
        builder.environment().put(AgentLibrary.ENVIRONMENT_VARIABLE, fakeLibrary.toString());
        builder.environment().put("FAKE_LOG", log.toString());
        builder.environment().putAll(env);
        Process process = builder.start();
        process.getOutputStream().write(stdin.getBytes(StandardCharsets.UTF_8));
        process.getOutputStream().close();
        byte[] out = process.getInputStream().readAllBytes();
        byte[] err = process.getErrorStream().readAllBytes();
        assertTrue(process.waitFor(60, TimeUnit.SECONDS));
        return new Result(process.exitValue(), new String(out, StandardCharsets.UTF_8),
                new String(err, StandardCharsets.UTF_8));
    }

    @Test
    void runPassesStreamsAndExitCodeAndNamesTheSnapshot() throws Exception {
        Path snapshots = dir.resolve("snaps");
        Path snapshot = Samples.sampled().write(dir.resolve("source.snapshot"));
        Result r = corvane(Map.of("FAKE_SNAPSHOT", snapshot.toString(), "FAKE_EXIT", "7"), "line from stdin\n",
                "run", "--dir", snapshots.toString(), "--", fakeJava.toString(), "-cp", "x", "Main", "a b");
        assertEquals(7, r.code(), r.err());
        assertTrue(r.out().contains("args: -cp x Main a b\n"), r.out());
        assertTrue(r.out().contains("options: sampling,onexit=snapshot,dir=" + snapshots + "\n"), r.out());
        assertTrue(r.out().endsWith("line from stdin\n"), r.out());
        Path written = snapshots.resolve("TestApp-2024-01-01-shutdown.snapshot");
        assertEquals(List.of("[Corvane Java Profiler 2019.8-b109] Log file: " + log,
                "corvane: snapshot written: " + written + "  (corvane report " + written + ")"), r.errLines());
    }

    @Test
    void runWithTracingAndMoreOptionsWithoutSnapshot() throws Exception {
        Result r = corvane(Map.of(), "", "run", "--tracing", "--agent-options", "monitors,quiet",
                fakeJava.toString(), "Main");
        assertEquals(0, r.code(), r.err());
        assertTrue(r.out().contains("options: tracing,onexit=snapshot,dir=" + dir.toRealPath()
                + ",monitors,quiet\n") || r.out().contains("options: tracing,onexit=snapshot,dir=" + dir
                + ",monitors,quiet\n"), r.out());
        String last = r.errLines().get(r.errLines().size() - 1);
        assertTrue(last.startsWith("corvane: no snapshot was written to "), last);
        assertTrue(last.endsWith("; the agent's log: " + log), last);
    }

    @Test
    void runExplainsARefusal() throws Exception {
        Result r = corvane(Map.of("FAKE_REFUSE", "1", "FAKE_EXIT", "3"), "", "run", "--", fakeJava.toString(), "M");
        assertEquals(3, r.code());
        assertEquals("corvane: the profiler agent refused to start (exit code 3: an invalid agent option, or the"
                + " option 'help'); its log: " + log, r.errLines().get(r.errLines().size() - 1));
    }

    @Test
    void aProgramsOwnExitCodeIsNoRefusal() throws Exception {
        Result r = corvane(Map.of("FAKE_EXIT", "3"), "", "run", "--", fakeJava.toString(), "M");
        assertEquals(3, r.code());
        assertFalse(r.err().contains("refused"), r.err());
    }

    @Test
    void aProgramOtherThanJavaGetsTheAgentThroughTheEnvironment() throws Exception {
        Path script = dir.resolve("app.sh");
        Files.writeString(script, "#!/bin/sh\necho \"tool options: $JAVA_TOOL_OPTIONS\"\n");
        Files.setPosixFilePermissions(script, PosixFilePermissions.fromString("rwxr-xr-x"));
        Result r = corvane(Map.of("JAVA_TOOL_OPTIONS", "-Xmx64m"), "", "run", "--dir", dir.toString(), "--",
                script.toString());
        assertEquals(0, r.code(), r.err());
        assertEquals("tool options: -agentpath:" + fakeLibrary + "=sampling,onexit=snapshot,dir=" + dir
                + " -Xmx64m\n", r.out());
    }

    @Test
    void runErrorsAreOneLine() throws Exception {
        Result missing = corvane(Map.of(), "", "run", "--", dir.resolve("nowhere/java").toString());
        assertEquals(1, missing.code());
        assertEquals(1, missing.errLines().size(), missing.err());
        assertTrue(missing.err().startsWith("corvane: cannot start " + dir.resolve("nowhere/java")), missing.err());

        Result noLibrary = corvane(Map.of(AgentLibrary.ENVIRONMENT_VARIABLE, "/nonexistent/libcorvane.so"), "",
                "run", "--", fakeJava.toString());
        assertEquals(List.of("corvane: the profiler agent library is missing: /nonexistent/libcorvane.so (named by "
                + AgentLibrary.ENVIRONMENT_VARIABLE + ")"), noLibrary.errLines());
    }

    @Test
    void attachReportsALoadFailureInOneLineAndTheJvmLivesOn() throws Exception {
        String java = System.getProperty("corvane.java", "java");
        Process target = new ProcessBuilder(java, "-cp", System.getProperty("corvane.test.classes"),
                "com.corvane.testing.Sleeper").start();
        try {
            BufferedReader ready = new BufferedReader(new InputStreamReader(target.getInputStream()));
            assertEquals("ready", ready.readLine());
            Result r = corvane(Map.of(), "", "attach", Long.toString(target.pid()), "--agent-options", "sampling");
            assertEquals(1, r.code());
            assertEquals(1, r.errLines().size(), r.err());
            assertTrue(r.err().startsWith("corvane: process " + target.pid() + " could not load the agent "
                    + fakeLibrary), r.err());
            assertTrue(target.isAlive());
        } finally {
            target.destroyForcibly();
        }
    }

    @Test
    void attachToAJvmThatRefusesAttach() throws Exception {
        String java = System.getProperty("corvane.java", "java");
        Process target = new ProcessBuilder(java, "-XX:+DisableAttachMechanism", "-cp",
                System.getProperty("corvane.test.classes"), "com.corvane.testing.Sleeper").start();
        try {
            BufferedReader ready = new BufferedReader(new InputStreamReader(target.getInputStream()));
            assertEquals("ready", ready.readLine());
            Result r = corvane(Map.of(), "", "attach", Long.toString(target.pid()));
            assertEquals(1, r.code());
            assertEquals(1, r.errLines().size(), r.err());
            assertTrue(r.err().startsWith("corvane: cannot attach to process " + target.pid()), r.err());
        } finally {
            target.destroyForcibly();
        }
    }
}
