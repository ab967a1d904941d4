package com.corvane.endtoend;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.HotLoop;
import com.corvane.testing.JsonParser;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;
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
    private static final Path DIST = Paths.get(System.getProperty("corvane.dist", "build/dist"));
    private static final String JAVA = System.getProperty("corvane.java", "java");
    private static final String CLASSES = System.getProperty("corvane.test.classes");
    private static final Pattern WRITTEN = Pattern.compile("(?m)^corvane: snapshot written: (.+?)  \\(corvane report");
    private static final String PROGRAM = HotLoop.class.getName();

    @TempDir
    Path dir;

    record Result(int code, String out, String err) {
    }

    private Result corvane(String... args) throws Exception {
        List<String> command = new ArrayList<>();
        command.add(DIST.resolve("bin/corvane").toString());
        command.addAll(Arrays.asList(args));
        ProcessBuilder builder = new ProcessBuilder(command).directory(dir.toFile());
        builder.environment().put("CORVANE_HOME", dir.resolve("home").toString());
        Path err = dir.resolve("stderr.txt");
        builder.redirectError(err.toFile());
        Process process = builder.start();
        process.getOutputStream().close();
        byte[] out = process.getInputStream().readAllBytes();
        assertTrue(process.waitFor(120, TimeUnit.SECONDS), "corvane " + String.join(" ", args));
        return new Result(process.exitValue(), new String(out, StandardCharsets.UTF_8),
                Files.readString(err, StandardCharsets.UTF_8));
    }

    @ParameterizedTest
    @ValueSource(strings = {"--tracing", "--sampling"})
    @SuppressWarnings("unchecked")
    void theHotMethodLeadsReportAndFlameGraph(String mode) throws Exception {
        Result run = corvane("run", mode, "--dir", dir.resolve("snapshots").toString(), "--",
                JAVA, "-cp", CLASSES, PROGRAM);
        assertEquals(0, run.code(), run.err());
        assertTrue(run.out().startsWith("sum "), run.out());
        Matcher written = WRITTEN.matcher(run.err());
        assertTrue(written.find(), run.err());
        Path snapshot = Paths.get(written.group(1));
        assertTrue(Files.isRegularFile(snapshot), snapshot.toString());

        Result report = corvane("report", "--json", "--hotspots", "1000", "--thread", "main", snapshot.toString());
        assertEquals(0, report.code(), report.err());
        Map<String, Object> json = (Map<String, Object>) JsonParser.parse(report.out());
        long total = (Long) json.get("totalTimeNs");
        assertTrue(total > 300_000_000L, "the main thread ran 0.8 s of CPU time: " + total);
        List<Map<String, Object>> own = new ArrayList<>();
        long ownSum = 0;
        for (Object item : (List<Object>) ((Map<String, Object>) json.get("hotSpots")).get("methods")) {
            Map<String, Object> m = (Map<String, Object>) item;
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
        Result flame = corvane("flamegraph", snapshot.toString(), "-o", html.toString());
        assertEquals(0, flame.code(), flame.err());
        assertTrue(flame.err().contains("flame graph written: " + html), flame.err());
        String page = Files.readString(html, StandardCharsets.UTF_8);
        assertTrue(page.contains("\"" + PROGRAM + ".hot(int)\""), "the flame graph's names hold the hot method");
    }
}
