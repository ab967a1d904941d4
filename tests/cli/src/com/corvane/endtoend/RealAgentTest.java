package com.corvane.endtoend;

import static com.corvane.testing.JsonParser.list;
import static com.corvane.testing.JsonParser.map;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.HotLoop;
import com.corvane.testing.JsonParser;
import com.corvane.testing.ToolRun;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/**
 * The installed tool with the real agent library: runs a program of known
 * hot spot, then reads the snapshot the agent wrote with report and
 * flamegraph.
 */
@Tag("agent")
class RealAgentTest {
    private static final String JAVA = System.getProperty("corvane.java", "java");
    private static final String CLASSES = System.getProperty("corvane.test.classes");
    private static final Pattern WRITTEN = Pattern.compile("(?m)^corvane: snapshot written: (.+?)  \\(corvane report");
    private static final String PROGRAM = HotLoop.class.getName();

    @TempDir
    Path dir;

    private ToolRun corvane(String... args) throws Exception {
        return ToolRun.installed(dir, Map.of("CORVANE_HOME", dir.resolve("home").toString()), "", args);
    }

    @ParameterizedTest
    @ValueSource(strings = {"--tracing", "--sampling"})
    void theHotMethodLeadsReportAndFlameGraph(String mode) throws Exception {
        ToolRun run = corvane("run", mode, "--dir", dir.resolve("snapshots").toString(), "--",
                JAVA, "-cp", CLASSES, PROGRAM);
        assertEquals(0, run.code(), run.err());
        assertTrue(run.out().startsWith("sum "), run.out());
        Matcher written = WRITTEN.matcher(run.err());
        assertTrue(written.find(), run.err());
        Path snapshot = Paths.get(written.group(1));
        assertTrue(Files.isRegularFile(snapshot), snapshot.toString());

        ToolRun report = corvane("report", "--json", "--hotspots", "1000", "--thread", "main", snapshot.toString());
        assertEquals(0, report.code(), report.err());
        Map<String, Object> json = map(JsonParser.parse(report.out()));
        long total = (Long) json.get("totalTimeNs");
        assertTrue(total > 300_000_000L, "the main thread ran 0.8 s of CPU time: " + total);
        List<Map<String, Object>> own = new ArrayList<>();
        long ownSum = 0;
        for (Object item : list(map(json.get("hotSpots")).get("methods"))) {
            Map<String, Object> m = map(item);
            ownSum += (Long) m.get("ownTimeNs");
            if (((String) m.get("method")).startsWith(PROGRAM + ".")) {
                own.add(m);
            }
        }
        assertTrue(ownSum <= total, "own times add up to no more than the total: " + ownSum + " > " + total);
        assertTrue(!own.isEmpty(), report.out());
        Map<String, Object> top = own.get(0);
        assertEquals(PROGRAM + ".hot(int)", top.get("method"), report.out());
        double share = ((Number) top.get("ownPercent")).doubleValue();
        assertTrue(share > 50 && share <= 100, "hot's share of the main thread: " + share);
        if (mode.equals("--tracing")) {
            // Every round calls hot 100 times and warm once; the last round may be cut by the exit.
            long hotCalls = (Long) top.get("invocations");
            long warmCalls = own.stream().filter(m -> m.get("method").equals(PROGRAM + ".warm(long)"))
                    .mapToLong(m -> (Long) m.get("invocations")).sum();
            assertTrue(warmCalls > 0 && hotCalls == 100 * warmCalls, hotCalls + " calls of hot, " + warmCalls
                    + " of warm");
        }

        Path html = dir.resolve("flame.html");
        ToolRun flame = corvane("flamegraph", snapshot.toString(), "-o", html.toString());
        assertEquals(0, flame.code(), flame.err());
        assertTrue(flame.err().contains("flame graph written: " + html), flame.err());
        String page = Files.readString(html, StandardCharsets.UTF_8);
        assertTrue(page.contains("\"" + PROGRAM + ".hot(int)\""), "the flame graph's names hold the hot method");
    }
}
