package com.corvane.testing;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.Main;
import com.corvane.commands.Io;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;

/**
 * The corvane tool, with its exit code and what it printed: run in the
 * test's own JVM, or as a person runs the installed bin/corvane of the
 * build (property corvane.dist). The suites that compile this file link it
 * from tests/java-shared.
 */
public record ToolRun(int code, String out, String err) {
    public static ToolRun of(String... args) {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        ByteArrayOutputStream err = new ByteArrayOutputStream();
        int code = Main.execute(args, new Io(new PrintStream(out, true, StandardCharsets.UTF_8),
                new PrintStream(err, true, StandardCharsets.UTF_8), false));
        return new ToolRun(code, out.toString(StandardCharsets.UTF_8), err.toString(StandardCharsets.UTF_8));
    }

    /** The tool run in {@code dir} and given more environment and standard input; it must end within 120 s. */
    public static ToolRun installed(Path dir, Map<String, String> env, String stdin, String... args)
            throws IOException, InterruptedException {
        List<String> command = new ArrayList<>(List.of(Path.of(System.getProperty("corvane.dist"), "bin/corvane")
                .toString()));
        command.addAll(Arrays.asList(args));
        Path err = Files.createTempFile(dir, "stderr", ".txt");
        ProcessBuilder builder = new ProcessBuilder(command).directory(dir.toFile()).redirectError(err.toFile());
        builder.environment().putAll(env);
        Process process = builder.start();
        process.getOutputStream().write(stdin.getBytes(StandardCharsets.UTF_8));
        process.getOutputStream().close();
        String out = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertTrue(process.waitFor(120, TimeUnit.SECONDS), "corvane " + String.join(" ", args));
        return new ToolRun(process.exitValue(), out, Files.readString(err));
    }

    /** What it printed, after checking that it succeeded. */
    public String ok() {
        assertEquals(0, code, err);
        return out;
    }

    public List<String> errLines() {
        return err.isEmpty() ? List.of() : Arrays.asList(err.split("\n"));
    }
}
