package com.corvane.commands;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.Samples;
import com.corvane.testing.ToolRun;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * The installed tool, bin/corvane, as a person runs it. "run" starts a
 * stand-in for java that shows what it was given, writes a snapshot where
 * the agent would and exits as told; "attach" goes to a real JVM.
 */
class LauncherTest {
    @TempDir
    Path dir;
    Path fakeJava;
    Path fakeLibrary;
    Path log;

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

    private ToolRun corvane(Map<String, String> env, String stdin, String... args) throws Exception {
        Map<String, String> all = new HashMap<>(env);
        all.putIfAbsent(AgentLibrary.ENVIRONMENT_VARIABLE, fakeLibrary.toString());
        all.put("FAKE_LOG", log.toString());
        return ToolRun.installed(dir, all, stdin, args);
    }

    @Test
    void runPassesStreamsAndExitCodeAndNamesTheSnapshot() throws Exception {
        Path snapshots = dir.resolve("snaps");
        Path snapshot = Samples.sampled().write(dir.resolve("source.snapshot"));
        ToolRun r = corvane(Map.of("FAKE_SNAPSHOT", snapshot.toString(), "FAKE_EXIT", "7"), "line from stdin\n",
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
        ToolRun r = corvane(Map.of(), "", "run", "--tracing", "--agent-options", "monitors,quiet",
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
        ToolRun r = corvane(Map.of("FAKE_REFUSE", "1", "FAKE_EXIT", "3"), "", "run", "--", fakeJava.toString(), "M");
        assertEquals(3, r.code());
        assertEquals("corvane: the profiler agent refused to start (exit code 3: an invalid agent option, or the"
                + " option 'help'); its log: " + log, r.errLines().get(r.errLines().size() - 1));
    }

    @Test
    void aProgramsOwnExitCodeIsNoRefusal() throws Exception {
        ToolRun r = corvane(Map.of("FAKE_EXIT", "3"), "", "run", "--", fakeJava.toString(), "M");
        assertEquals(3, r.code());
        assertFalse(r.err().contains("refused"), r.err());
    }

    @Test
    void aProgramOtherThanJavaGetsTheAgentThroughTheEnvironment() throws Exception {
        Path script = dir.resolve("app.sh");
        Files.writeString(script, "#!/bin/sh\necho \"tool options: $JAVA_TOOL_OPTIONS\"\n");
        Files.setPosixFilePermissions(script, PosixFilePermissions.fromString("rwxr-xr-x"));
        ToolRun r = corvane(Map.of("JAVA_TOOL_OPTIONS", "-Xmx64m"), "", "run", "--dir", dir.toString(), "--",
                script.toString());
        assertEquals(0, r.code(), r.err());
        assertEquals("tool options: -agentpath:" + fakeLibrary + "=sampling,onexit=snapshot,dir=" + dir
                + " -Xmx64m\n", r.out());
    }

    @Test
    void runErrorsAreOneLine() throws Exception {
        ToolRun missing = corvane(Map.of(), "", "run", "--", dir.resolve("nowhere/java").toString());
        assertEquals(1, missing.code());
        assertEquals(1, missing.errLines().size(), missing.err());
        assertTrue(missing.err().startsWith("corvane: cannot start " + dir.resolve("nowhere/java")), missing.err());

        ToolRun noLibrary = corvane(Map.of(AgentLibrary.ENVIRONMENT_VARIABLE, "/nonexistent/libcorvane.so"), "",
                "run", "--", fakeJava.toString());
        assertEquals(List.of("corvane: the profiler agent library is missing: /nonexistent/libcorvane.so (named by "
                + AgentLibrary.ENVIRONMENT_VARIABLE + ")"), noLibrary.errLines());
    }

    /**
     * Attach to a JVM that has said it is up fails with one line on stderr, the process id between the two
     * parts given, and the JVM lives on.
     */
    private void assertAttachFails(List<String> javaOptions, List<String> options, String before, String after)
            throws Exception {
        List<String> command = new ArrayList<>(List.of(System.getProperty("corvane.java", "java")));
        command.addAll(javaOptions);
        command.addAll(List.of("-cp", System.getProperty("corvane.test.classes"), "com.corvane.testing.Sleeper"));
        Process target = new ProcessBuilder(command).start();
        try {
            assertEquals("ready", new BufferedReader(new InputStreamReader(target.getInputStream())).readLine());
            List<String> args = new ArrayList<>(List.of("attach", Long.toString(target.pid())));
            args.addAll(options);
            ToolRun r = corvane(Map.of(), "", args.toArray(new String[0]));
            assertEquals(1, r.code());
            assertEquals(1, r.errLines().size(), r.err());
            assertTrue(r.err().startsWith(before + target.pid() + after), r.err());
            assertTrue(target.isAlive());
        } finally {
            target.destroyForcibly();
        }
    }

    @Test
    void attachFailuresAreOneLineAndTheJvmLivesOn() throws Exception {
        assertAttachFails(List.of(), List.of("--agent-options", "sampling"), "corvane: process ",
                " could not load the agent " + fakeLibrary);
        assertAttachFails(List.of("-XX:+DisableAttachMechanism"), List.of(), "corvane: cannot attach to process ", "");
    }
}
