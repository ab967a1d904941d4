package com.corvane.testing;

import com.corvane.Main;
import com.corvane.commands.Io;
import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.List;

/**
 * The corvane tool run in the test's own JVM, with its exit code and what it
 * printed. The suites that compile this file link it from tests/java-shared.
 */
public record ToolRun(int code, String out, String err) {
    public static ToolRun of(String... args) {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        ByteArrayOutputStream err = new ByteArrayOutputStream();
        int code = Main.execute(args, new Io(new PrintStream(out, true, StandardCharsets.UTF_8),
                new PrintStream(err, true, StandardCharsets.UTF_8), false));
        return new ToolRun(code, out.toString(StandardCharsets.UTF_8), err.toString(StandardCharsets.UTF_8));
    }

    public List<String> errLines() {
        return err.isEmpty() ? List.of() : Arrays.asList(err.split("\n"));
    }
}
