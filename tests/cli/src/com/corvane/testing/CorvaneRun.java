package com.corvane.testing;

import com.corvane.Main;
import com.corvane.commands.Io;
import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.List;

/** One command line of the tool, run in this JVM, with what it printed. */
public record CorvaneRun(int code, String out, String err) {
    public List<String> errLines() {
        return err.isEmpty() ? List.of() : Arrays.asList(err.split("\n"));
    }

    public static CorvaneRun corvane(String... args) {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        ByteArrayOutputStream err = new ByteArrayOutputStream();
        int code = Main.execute(args, new Io(new PrintStream(out, true, StandardCharsets.UTF_8),
                new PrintStream(err, true, StandardCharsets.UTF_8), false));
        return new CorvaneRun(code, out.toString(StandardCharsets.UTF_8), err.toString(StandardCharsets.UTF_8));
    }
}
