package com.corvane.probetests;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.stream.Collectors;
import java.util.stream.Stream;

/** Probe classes of tests/probes/probe-sources, compiled and packed by the JDK's tools as a user would. */
final class ProbeBuild {
    private ProbeBuild() {
    }

    static Path jdkTool(String name) {
        return Paths.get(System.getProperty("corvane.java")).resolveSibling(name);
    }

    /** Runs a command in `dir`; fails the test unless it exits with 0. Returns its output. */
    static String run(Path dir, List<String> command) throws IOException, InterruptedException {
        return run(new ProcessBuilder(command).directory(dir.toFile()));
    }

    /** Runs what the builder says within 10 minutes; fails the test unless it exits with 0. Returns its output. */
    static String run(ProcessBuilder builder) throws IOException, InterruptedException {
        Process process = builder.redirectErrorStream(true).start();
        String out = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertTrue(process.waitFor(600, TimeUnit.SECONDS), "it ends: " + String.join(" ", builder.command()));
        assertEquals(0, process.exitValue(), String.join(" ", builder.command()) + "\n" + out);
        return out;
    }

    /** The probes of folder `name` against corvane-probes.jar, into <dir>/<name>.jar. */
    static Path probeJar(Path dir, String name) throws IOException, InterruptedException {
        Path sources = Paths.get(System.getProperty("corvane.probes.sources")).resolve(name);
        Path classes = Files.createDirectories(dir.resolve(name + "-classes"));
        List<String> javac = new ArrayList<>(List.of(jdkTool("javac").toString(), "--release", "8", "-Xlint:-options",
                "-cp", System.getProperty("corvane.probes.api"), "-d", classes.toString()));
        try (Stream<Path> files = Files.walk(sources)) {
            javac.addAll(files.filter(p -> p.toString().endsWith(".java")).map(Path::toString).collect(Collectors.toList()));
        }
        run(dir, javac);
        Path jar = dir.resolve(name + ".jar");
        run(dir, List.of(jdkTool("jar").toString(), "cf", jar.toString(), "-C", classes.toString(), "."));
        return jar;
    }
}
