package com.corvane.testing;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotReader;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.stream.Collectors;
import java.util.stream.Stream;

/**
 * A JVM with the agent library of the build (properties corvane.java and
 * corvane.agent), in an environment of its own: the agent's home in the
 * test's folder, and no options from the environment of whoever runs the
 * tests. The end-to-end suites that compile this file link it from
 * tests/java-shared.
 */
public final class AgentJvm {
    /** Exit code, standard output and error together, and the agent's log files joined. */
    public record Run(int exitCode, String out, String log) {
    }

    /** A run that ran through, the snapshot it left and that snapshot as the project's reader reads it. */
    public record Snapshotted(Run run, Path file, Snapshot snapshot) {
    }

    private AgentJvm() {
    }

    public static Run run(Path dir, String agentOptions, String classPath, String... program)
            throws IOException, InterruptedException {
        return runLimited(null, dir, agentOptions, classPath, program);
    }

    /** As {@link #run}, under a shell that first sets the process's limits ("ulimit -f 1000"), unless null. */
    public static Run runLimited(String limits, Path dir, String agentOptions, String classPath, String... program)
            throws IOException, InterruptedException {
        ProcessBuilder builder = builder(dir, agentOptions, classPath, program).redirectErrorStream(true);
        if (limits != null) {
            builder.command().addAll(0, List.of("/bin/sh", "-c", limits + "; exec \"$0\" \"$@\""));
        }
        Process process = builder.start();
        String out = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertTrue(process.waitFor(300, TimeUnit.SECONDS), "the program ends");
        return new Run(process.exitValue(), out, log(dir));
    }

    /** The command and environment of a JVM with the agent, to start as the caller needs. */
    public static ProcessBuilder builder(Path dir, String agentOptions, String classPath, String... program) {
        List<String> command = new ArrayList<>(List.of(System.getProperty("corvane.java"),
                "-agentpath:" + System.getProperty("corvane.agent") + "=" + agentOptions, "-cp", classPath));
        command.addAll(List.of(program));
        ProcessBuilder builder = new ProcessBuilder(command);
        builder.environment().put("CORVANE_HOME", dir.resolve("home").toString());
        builder.environment().remove("JAVA_TOOL_OPTIONS");
        builder.environment().remove("KZT_STARTUP_OPTIONS_PRE");
        builder.environment().remove("KZT_STARTUP_OPTIONS_POST");
        return builder;
    }

    /** The agent's log files of the runs in {@code dir}, joined. */
    public static String log(Path dir) throws IOException {
        Path logs = dir.resolve("home/.kzt/log");
        StringBuilder log = new StringBuilder();
        if (Files.isDirectory(logs)) {
            try (Stream<Path> files = Files.list(logs)) {
                for (Path file : files.collect(Collectors.toList())) {
                    log.append(Files.readString(file));
                }
            }
        }
        return log.toString();
    }

    /**
     * Runs a program that captures a snapshot into the file named by its first argument, printing "capture null"
     * when that succeeded and "done" at its end, with {@code more} arguments after the file; checks that it ran
     * through and that the agent logged no problem.
     */
    public static Snapshotted capturing(Path dir, String options, String classPath, String program, String... more)
            throws Exception {
        Path file = dir.resolve(program + ".snapshot");
        List<String> arguments = new ArrayList<>(List.of(program, file.toString()));
        arguments.addAll(List.of(more));
        Run run = run(dir, options + ",dir=" + Files.createDirectories(dir.resolve("exit")), classPath,
                arguments.toArray(new String[0]));
        assertEquals(0, run.exitCode(), run.out());
        assertTrue(run.out().contains("capture null"), run.out());
        assertTrue(run.out().contains("done "), run.out());
        assertEquals(List.of(), problems(run.log()), "the agent logged no warnings or errors");
        return new Snapshotted(run, file, SnapshotReader.read(file));
    }

    /** Runs a program that ends with exit code 0; the one snapshot the agent wrote at that exit. */
    public static Snapshotted atExit(Path dir, String options, String classPath, String... program)
            throws Exception {
        Path snapshots = Files.createDirectories(dir.resolve("snapshots"));
        Run run = run(dir, (options.isEmpty() ? "" : options + ",") + "onexit=snapshot,dir=" + snapshots, classPath,
                program);
        assertEquals(0, run.exitCode(), run.out() + run.log());
        Path file = onlyFile(snapshots, "-shutdown.snapshot");
        return new Snapshotted(run, file, SnapshotReader.read(file));
    }

    /** The JNI library that the suite's CMakeLists built for its programs (CORVANE_TEST_JNI_LIBRARY). */
    public static String jniLibrary() {
        String library = System.getenv("CORVANE_TEST_JNI_LIBRARY");
        assertNotNull(library, "the test's JNI library (CORVANE_TEST_JNI_LIBRARY)");
        assertTrue(Files.isRegularFile(Path.of(library)), "built: " + library);
        return library;
    }

    /**
     * The lines of a log that warn or tell of an error, but for a slow telemetry sample: that one
     * tells of a busy machine, not of a fault.
     */
    public static List<String> problems(String log) {
        List<String> found = new ArrayList<>();
        for (String line : log.split("\n")) {
            boolean busy = line.contains("warning: long telemetry sample: ");
            if (!busy && (line.contains("warning:") || line.contains("error:"))) {
                found.add(line);
            }
        }
        return found;
    }

    /** The one file of the folder whose name ends with the suffix. */
    public static Path onlyFile(Path folder, String suffix) throws IOException {
        try (Stream<Path> files = Files.list(folder)) {
            List<Path> found = files.filter(p -> p.getFileName().toString().endsWith(suffix)).collect(Collectors.toList());
            assertEquals(1, found.size(), "files ending in " + suffix + ": " + found);
            return found.get(0);
        }
    }
}
