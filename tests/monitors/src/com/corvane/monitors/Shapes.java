package com.corvane.monitors;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;

/** Runs the programs of tests/monitors/java and finds the lines their sources mark. */
final class Shapes {
    private Shapes() {
    }

    /** Runs the program with the options (see {@link AgentJvm#capturing}). */
    static Snapshotted run(Path dir, String options, String program, String... more) throws Exception {
        String classes = System.getProperty("corvane.monitors.classes");
        assertNotNull(classes, "the programs' classes (corvane.monitors.classes)");
        return AgentJvm.capturing(dir, options, classes, program, more);
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
