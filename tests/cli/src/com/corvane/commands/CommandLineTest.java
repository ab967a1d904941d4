package com.corvane.commands;

import static com.corvane.testing.JsonParser.list;
import static com.corvane.testing.JsonParser.map;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.JsonParser;
import com.corvane.testing.Samples;
import com.corvane.testing.SnapshotFixture;
import com.corvane.testing.ToolRun;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The tool run in this JVM: what it prints and the codes it returns. */
class CommandLineTest {
    @TempDir
    Path dir;

    /** A user error: one line on stderr, no stack trace, a non-zero code. */
    private static void assertOneLineError(ToolRun result, int code, String line) {
        assertEquals(code, result.code(), result.err());
        assertEquals(List.of(line), result.errLines());
        assertEquals("", result.out());
    }

    @Test
    void userErrorsAreOneLine() throws Exception {
        Path missing = dir.resolve("missing.snapshot");
        assertOneLineError(ToolRun.of("report", missing.toString()), 1, "corvane: no such file: " + missing);
        assertOneLineError(ToolRun.of("flamegraph", dir.toString()), 1,
                "corvane: " + dir + " is a folder, not a snapshot file");

        Path text = Files.writeString(dir.resolve("notes.txt"), "hello");
        assertOneLineError(ToolRun.of("report", text.toString()), 1,
                "corvane: " + text + ": not a Corvane snapshot: the file does not begin with CORVANE_FILE_60000");

        byte[] whole = Samples.sampled().toBytes();
        Path cut = dir.resolve("cut.snapshot");
        Files.write(cut, Arrays.copyOf(whole, whole.length - 3));
        ToolRun truncated = ToolRun.of("report", cut.toString());
        assertEquals(1, truncated.code());
        assertEquals(1, truncated.errLines().size());
        assertTrue(truncated.err().startsWith("corvane: " + cut + ": truncated snapshot: the file ends at offset "
                + (whole.length - 3)), truncated.err());

        Path snapshot = Samples.sampled().write(dir.resolve("app.snapshot"));
        assertOneLineError(ToolRun.of("report", "--thread", "pool-*", snapshot.toString()), 1,
                "corvane: no thread with recorded time matches --thread pool-*; the threads are: main, worker");
        Path nowhere = dir.resolve("no/such/folder/out.html");
        assertOneLineError(ToolRun.of("flamegraph", snapshot.toString(), "-o", nowhere.toString()), 1,
                "corvane: cannot write " + nowhere + ": no such folder");

        assertOneLineError(ToolRun.of("attach", "12x"), 1, "corvane: not a process id: 12x");
        assertOneLineError(ToolRun.of("attach", "999999999"), 1, "corvane: no such process: 999999999");
    }

    @Test
    void usageErrorsAreOneLineWithAPointerToHelp() {
        assertOneLineError(ToolRun.of("report"), 2,
                "corvane report: Missing required parameter: '<snapshot>' (see 'corvane report --help')");
        assertOneLineError(ToolRun.of("report", "--depth", "deep", "x"), 2,
                "corvane report: Invalid value for option '--depth': 'deep' is not an int (see 'corvane report --help')");
        assertOneLineError(ToolRun.of("frobnicate"), 2,
                "corvane: Unmatched argument at index 0: 'frobnicate' (see 'corvane --help')");
        ToolRun none = ToolRun.of();
        assertEquals(2, none.code());
        assertTrue(none.err().contains("Usage: corvane"), none.err());
    }

    @Test
    void helpDescribesEveryCommandAndOption() {
        ToolRun help = ToolRun.of("--help");
        assertEquals(0, help.code());
        for (String command : new String[] {"run", "attach", "report", "flamegraph"}) {
            assertTrue(help.out().contains("  " + command + " "), help.out());
            ToolRun commandHelp = ToolRun.of(command, "--help");
            assertEquals(0, commandHelp.code());
            assertTrue(commandHelp.out().startsWith("Usage: corvane " + command), commandHelp.out());
        }
        String run = ToolRun.of("run", "--help").out();
        for (String option : new String[] {"--sampling", "--tracing", "--agent-options", "--dir"}) {
            assertTrue(run.contains(option), option);
        }
        String report = ToolRun.of("report", "--help").out();
        for (String option : new String[] {"--json", "--top", "--depth", "--hotspots"}) {
            assertTrue(report.contains(option), option);
        }
        assertTrue(ToolRun.of("flamegraph", "--help").out().contains("--format"));
        assertTrue(ToolRun.of("--version").out().contains("2019.8-b109"));
        assertTrue(ToolRun.of("generate-completion").out().contains("flamegraph"));
    }

    @Test
    void reportAsJsonAndText() throws Exception {
        Path snapshot = Samples.sampled().write(dir.resolve("app.snapshot"));
        ToolRun result = ToolRun.of("report", "--json", "--hotspots", "2", snapshot.toString());
        assertEquals(2, list(map(map(JsonParser.parse(result.ok())).get("hotSpots")).get("methods")).size());
        assertEquals("", result.err());
        String text = ToolRun.of("report", snapshot.toString()).ok();
        assertTrue(text.contains(Samples.HOT_METHOD), text);
        assertTrue(text.contains("Hot spots: 4 of 4 methods"), text);
    }

    @Test
    void reportOfSelectedThreads() throws Exception {
        Path snapshot = Samples.sampled().write(dir.resolve("app.snapshot"));
        Map<String, Object> json = map(JsonParser.parse(ToolRun.of("report", "--json", "--thread", "w?rk*",
                snapshot.toString()).ok()));
        assertEquals(400_000_000L, json.get("totalTimeNs"));
        List<Object> threads = list(json.get("threads"));
        assertEquals(1, threads.size());
        Map<String, Object> worker = map(threads.get(0));
        assertEquals("worker", worker.get("name"));
        Map<String, Object> top = map(list(map(worker.get("hotSpots")).get("methods")).get(0));
        assertEquals(Samples.HOT_METHOD, top.get("method"));
        assertEquals(75.0, ((Number) top.get("ownPercent")).doubleValue());

        String brief = ToolRun.of("report", "--brief", "--thread", "main", snapshot.toString()).ok();
        assertTrue(brief.contains("100% = 1,000.0 ms of recorded CPU time in 1 thread"), brief);
        assertTrue(brief.contains("Hot spots of thread \"main\""), brief);
        assertFalse(brief.contains("Call tree"), brief);
        assertFalse(brief.contains("Snapshot:"), brief);
    }

    @Test
    void collapsedStacksAddUpToTheRecordedTime() throws Exception {
        Path snapshot = Samples.sampled().write(dir.resolve("app.snapshot"));
        String collapsed = ToolRun.of("flamegraph", snapshot.toString(), "--format", "collapsed").ok();
        long sum = 0;
        for (String line : collapsed.split("\n")) {
            assertTrue(line.matches("[^ ;][^;]*(;[^;]+)* \\d+"), line);
            sum += Long.parseLong(line.substring(line.lastIndexOf(' ') + 1));
        }
        assertEquals(1_400_000_000L, sum);
        assertTrue(collapsed.contains("com.example.Main.main(java.lang.String[]);" + Samples.HOT_METHOD
                + " 700000000\n"), collapsed);

        ToolRun perThread = ToolRun.of("flamegraph", snapshot.toString(), "--format", "collapsed", "--threads");
        assertTrue(perThread.out().contains("worker;com.example.Worker.run();" + Samples.HOT_METHOD + " 300000000"),
                perThread.out());
    }

    @Test
    void htmlFlameGraphIsSelfContained() throws Exception {
        Path snapshot = Samples.sampled().write(dir.resolve("app.snapshot"));
        Path html = dir.resolve("out.html");
        ToolRun result = ToolRun.of("flamegraph", snapshot.toString(), "-o", html.toString());
        assertEquals(0, result.code(), result.err());
        assertEquals(List.of("corvane: flame graph written: " + html), result.errLines());
        String page = Files.readString(html);
        assertTrue(page.contains(Samples.HOT_METHOD));
        assertFalse(page.contains("/*@DATA@*/"));
        for (String external : new String[] {"http://", "https://", "<link", "src=", "@import", "url("}) {
            assertFalse(page.contains(external), "the page must not fetch anything: " + external);
        }
    }

    @Test
    void emptySnapshotStillGivesAFlameGraph() throws Exception {
        Path snapshot = new SnapshotFixture().write(dir.resolve("empty.snapshot"));
        Path html = dir.resolve("empty.html");
        ToolRun result = ToolRun.of("flamegraph", snapshot.toString(), "-o", html.toString());
        assertEquals(0, result.code());
        assertTrue(result.err().contains("holds no CPU time"));
        assertTrue(Files.exists(html));
    }

    @Test
    void agentOptionQuotingMatchesTheAgentsDecoder() {
        assertEquals("dir=/tmp/x", AgentOptions.option("dir", "/tmp/x"));
        String quoted = AgentOptions.option("dir", "/tmp/a,b");
        assertEquals("dir=KZTQUOTED2f746d702f612c62", quoted);
        assertEquals("/tmp/a,b", AgentOptions.lastValue("sampling," + quoted, "dir"));
        assertEquals("KZTQUOTED2", AgentOptions.decode("KZTQUOTED2"));
        assertEquals("/b", AgentOptions.lastValue(AgentOptions.join(",dir=/a", "", "dir=/b,"), "dir"));
        assertEquals("tracing,onexit=snapshot", AgentOptions.join("tracing", null, ",onexit=snapshot,"));
    }
}
