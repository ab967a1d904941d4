package com.corvane.testing;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.OutputStreamWriter;
import java.io.UncheckedIOException;
import java.io.Writer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;

/**
 * Snapshot files made by the agent's own database and writer: a running
 * tests/snapshot/SnapshotFixture, given one command per line (see there),
 * answering each with the index it made.
 */
public final class SnapshotFixture {
    private final Process myProcess;
    private final Writer myCommands;
    private final BufferedReader myAnswers;

    public SnapshotFixture() {
        String tool = System.getProperty("corvane.snapshot.fixture");
        if (tool == null) {
            throw new IllegalStateException("the system property corvane.snapshot.fixture names no fixture tool");
        }
        try {
            myProcess = new ProcessBuilder(tool).redirectError(ProcessBuilder.Redirect.DISCARD).start();
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
        myCommands = new OutputStreamWriter(myProcess.getOutputStream(), StandardCharsets.UTF_8);
        myAnswers = new BufferedReader(new InputStreamReader(myProcess.getInputStream(), StandardCharsets.UTF_8));
    }

    /** Runs one command; its answer, which is "ok" or a number. */
    public String command(Object... fields) {
        StringBuilder line = new StringBuilder();
        for (Object field : fields) {
            if (line.length() > 0) {
                line.append('\t');
            }
            line.append(String.valueOf(field).replace("\\", "\\\\").replace("\n", "\\n"));
        }
        try {
            myCommands.write(line.append('\n').toString());
            myCommands.flush();
            String answer = myAnswers.readLine();
            if (answer == null || answer.startsWith("error")) {
                throw new IllegalStateException("snapshot fixture: " + fields[0] + ": " + answer);
            }
            return answer;
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    /** A command that makes a row: the row's index. */
    public int index(Object... fields) {
        return Integer.parseInt(command(fields));
    }

    public Path write(Path file) {
        command("write", file.toAbsolutePath());
        return file;
    }

    public byte[] toBytes() {
        try {
            Path file = Files.createTempFile("fixture", ".snapshot");
            try {
                return Files.readAllBytes(write(file));
            } finally {
                Files.delete(file);
            }
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }
}
