package com.corvane.monitors;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.testing.AgentJvm;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/** Runs the programs of tests/monitors/java and reads what they left. */
final class Shapes {
    record Outcome(AgentJvm.Run run, Snapshot snapshot) {
    }

    private Shapes() {
    }

    /** Runs the program with the options; its snapshot, after checking that it ran through and logged no problem. */
    static Outcome run(Path dir, String options, String program, String... more) throws Exception {
        Path snapshot = dir.resolve(program + ".snapshot");
        List<String> arguments = new ArrayList<>(List.of(program, snapshot.toString()));
        arguments.addAll(List.of(more));
        String classes = System.getProperty("corvane.monitors.classes");
        assertNotNull(classes, "the programs' classes (corvane.monitors.classes)");
        AgentJvm.Run run = AgentJvm.run(dir, options + ",dir=" + Files.createDirectories(dir.resolve("exit")),
                classes, arguments.toArray(new String[0]));
        assertEquals(0, run.exitCode(), run.out());
        assertTrue(run.out().contains("capture null"), run.out());
        assertTrue(run.out().contains("done "), run.out());
        assertEquals(List.of(), AgentJvm.problems(run.log()), "the agent logged no warnings or errors");
        return new Outcome(run, SnapshotReader.read(snapshot));
    }

    /** The line of the program's source that carries the marker comment. */
    static int line(String program, String marker) throws IOException {
        String sources = System.getProperty("corvane.monitors.sources");
        assertNotNull(sources, "the programs' sources (corvane.monitors.sources)");
        List<String> lines = Files.readAllLines(Path.of(sources, program + ".java"));
        int found = 0;
        for (int i = 0; i < lines.size(); i++) {
            if (lines.get(i).contains("// " + marker)) {
                assertEquals(0, found, "one line marked " + marker);
                found = i + 1;
            }
        }
        assertTrue(found > 0, "a line marked " + marker);
        return found;
    }
}
