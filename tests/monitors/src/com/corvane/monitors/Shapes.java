package com.corvane.monitors;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.Profile;
import com.corvane.report.Json;
import com.corvane.report.Report;
import com.corvane.report.TextReport;
import com.corvane.snapshot.Snapshot;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;

/** Runs the programs of tests/monitors/java, reports their snapshots and finds the lines their sources mark. */
final class Shapes {
    private Shapes() {
    }

    /** Runs the program with the options (see {@link AgentJvm#capturing}). */
    static Snapshotted run(Path dir, String options, String program, String... more) throws Exception {
        String classes = System.getProperty("corvane.monitors.classes");
        assertNotNull(classes, "the programs' classes (corvane.monitors.classes)");
        return AgentJvm.capturing(dir, options, classes, program, more);
    }

    /** The report of a snapshot, with room for every row of the programs. */
    record Printed(String json, String text) {
    }

    /** The report as `corvane report --json` writes it and as the text `corvane report` prints. */
    static Printed report(Snapshot snapshot) throws Exception {
        Map<String, Object> report = Report.build(snapshot, Profile.build(snapshot), new Report.Limits(50, 5, 5, 12));
        ByteArrayOutputStream text = new ByteArrayOutputStream();
        TextReport.print(report, false, new PrintStream(text, true, StandardCharsets.UTF_8));
        return new Printed(Json.toString(report, false), text.toString(StandardCharsets.UTF_8));
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
