package com.corvane.triggers;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.EventTables;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.ToolRun;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * Real JVMs with the agent and a triggers file, running Idle (tests/triggers/java) for a known time. Each
 * writes the runtime class archive into its own folder: other agents of this version on the machine share
 * the default one and may write it just as this JVM is about to load it.
 */
class TriggersTest {
    static final String CLASSES = System.getProperty("corvane.triggers.classes");

    /** Runs the program with the triggers and the options; it must end with code 0. */
    static AgentJvm.Run run(Path dir, String triggers, String options, String... program) throws Exception {
        Path file = Files.writeString(dir.resolve("triggers.txt"), triggers);
        AgentJvm.Run run = AgentJvm.run(dir, "triggers=" + file + ",tmpdir=" + dir + options, CLASSES, program);
        assertEquals(0, run.exitCode(), run.out());
        return run;
    }

    static List<String> linesOf(String out) {
        return Arrays.asList(out.split("\n"));
    }

    static List<Path> snapshotsIn(Path folder) throws Exception {
        try (Stream<Path> files = Files.list(folder)) {
            return files.filter(p -> p.toString().endsWith(".snapshot")).sorted().collect(Collectors.toList());
        }
    }

    @Test
    void timerCapturesEverySecondUpToItsCountAndStartAndExitFireOnce(@TempDir Path dir) throws Exception {
        Path snapshots = Files.createDirectories(dir.resolve("snapshots"));
        String triggers = "# three snapshots, a second apart\n"
                + "\n"
                + "TimerListener delay=1s maxTriggerCount=3\n"
                + "  CapturePerformanceSnapshot fileName=timer-{date}\n"
                + "  PrintMessage message=timer\\sfired\n"
                + "JvmStartListener\n"
                + "  PrintMessage message=jvm\\sstarted\n"
                + "  PrintMessage message=macros\\s${GcTime}\\s${ThreadCount}\\s${MethodName}\\s${UsedHeapByPool}\n"
                + "JvmExitListener\n"
                + "  PrintMessage message=jvm\\sexiting output=stderr\n"
                + "UnknownListener x=1\n"
                + "  PrintMessage message=never\n";
        AgentJvm.Run run = run(dir, triggers, ",dir=" + snapshots, "Idle", "9000");
        List<String> lines = linesOf(run.out());
        assertEquals(3, lines.stream().filter("timer fired"::equals).count(), run.out());
        assertEquals(1, lines.stream().filter("jvm started"::equals).count(), run.out());
        // A macro of a method call has no value outside a method listener.
        assertTrue(lines.stream().anyMatch(l -> l.matches("macros [0-9]+ ms [0-9]+ <unknown> .+: [0-9]+ bytes.*")),
                run.out());
        assertEquals(1, lines.stream().filter("jvm exiting"::equals).count(), run.out());
        assertTrue(lines.indexOf("jvm exiting") > lines.indexOf("done"), run.out());
        assertTrue(!run.out().contains("never"), run.out());
        assertEquals(3, snapshotsIn(snapshots).size(), snapshotsIn(snapshots).toString());
        assertTrue(snapshotsIn(snapshots).stream().allMatch(p -> p.getFileName().toString().startsWith("timer-")));
        assertTrue(run.log().contains("setTriggers: OK"), run.log());
    }

    @Test
    void timerCapturesAMemorySnapshotAndAnHprofDump(@TempDir Path dir) throws Exception {
        Path snapshots = Files.createDirectories(dir.resolve("snapshots"));
        String triggers = "TimerListener delay=1s maxTriggerCount=1\n"
                + "  CaptureMemorySnapshot\n"
                + "  CaptureHprofSnapshot\n";
        AgentJvm.Run run = run(dir, triggers, ",dir=" + snapshots, "Idle", "4000");
        List<Path> memory = snapshotsIn(snapshots);
        assertEquals(1, memory.size(), memory.toString());
        String report = ToolRun.of("report", memory.get(0).toString()).ok();
        assertTrue(report.contains("\nHeap: "), report);
        try (Stream<Path> files = Files.list(snapshots)) {
            assertEquals(1, files.filter(p -> p.toString().endsWith(".hprof")).count(), run.log());
        }
    }

    @Test
    void textsThatCannotBeParsedOrPerformedAreRefusedWithTheirReason(@TempDir Path dir) throws Exception {
        String[][] cases = {
            {"TimerListener delay=10x\n  Empty\n", "", "Cannot parse triggers: wrong duration postfix: 10x"},
            {"  Empty\n", "", "Cannot parse triggers: action line without listener: Empty"},
        };
        for (String[] c : cases) {
            Path caseDir = Files.createDirectories(dir.resolve("case" + Arrays.asList(cases).indexOf(c)));
            AgentJvm.Run run = run(caseDir, c[0], c[1], "Idle", "0");
            assertTrue(run.log().contains("warning: " + c[2]), c[2] + " in\n" + run.log());
        }
    }

    @Test
    void methodTriggersFireOnEachCallWithTheValuesAskedFor(@TempDir Path dir) throws Exception {
        String triggers = "MethodListener methodPattern=Shop:price(int,\\sjava.lang.String) fillThis=true fillParams=true"
                + " fillReturnValue=true\n"
                + "  onenter:PrintMessage message=enter\\s${MethodName}(${Params})\\sstock=${ThisField\\sstock}\n"
                + "  onreturn:PrintMessage message=return\\s${ReturnValue}\n"
                + "  onexception:PrintMessage message=threw\\s${ThrownException}\n"
                + "MethodListener methodPattern=Shop:idle() maxTriggerCount=2\n"
                + "  onreturn:PrintMessage message=idle\\s${MethodContext}\\s${This}\n"
                + "MethodListener methodPattern=Shop:price(*) instanceOf=java.lang.Runnable\n"
                + "  onenter:PrintMessage message=never\n"
                + "MethodListener methodPattern=Shop:price(*) instanceOf=Shop\n"
                + "  onreturn:PrintMessage message=counted\n"
                + "MethodListener methodPattern=Shop:nothing(\n"
                + "  onenter:PrintMessage message=never\n"
                + "MethodListener methodPattern=Shop:nothing() instanceOf=9x\n"
                + "  onenter:PrintMessage message=never\n"
                + "MethodListener methodPattern=Shop:price(*) fillParams=true fillReturnValue=true\n"
                + "  onreturn:RecordMethodInvocation\n";
        Path snapshots = Files.createDirectories(dir.resolve("snapshots"));
        AgentJvm.Run run = run(dir, triggers, ",quiet,onexit=snapshot,dir=" + snapshots, "Shop");
        StringBuilder expected = new StringBuilder();
        for (int i = 0; i < 5; i++) {
            expected.append("enter price(" + i + ", apple) stock=7\nreturn " + 3 * i + "\ncounted\n");
        }
        for (int i = 1; i <= 2; i++) {
            expected.append("enter price(-" + i + ", pear) stock=7\n"
                    + "threw java.lang.IllegalArgumentException: negative -" + i + "\n");
        }
        // maxTriggerCount=2 of three calls; a static method has no `this`.
        expected.append("idle Shop.idle() <unknown>\nidle Shop.idle() <unknown>\nsum 28\n");
        assertEquals(expected.toString(), run.out());
        assertTrue(run.log().contains("Invalid method pattern 'Shop:nothing(': invalid pattern syntax, must be "
                + "<class>:<method>(<params>)\n"), run.log());
        assertTrue(run.log().contains("Invalid instanceOf '9x': invalid Java type name\n"), run.log());
        assertTrue(run.log().contains("setTriggers: method listeners to register: 5\n"), run.log());
        // Each call of price a row of the method invocations, from entry to exit.
        EventTables tables = new EventTables(SnapshotReader.read(AgentJvm.onlyFile(snapshots, "-shutdown.snapshot")));
        List<String> rows = tables.rows(tables.table("Method Invocations")).stream()
                .map(r -> r.get("thread") + " " + r.get("Method") + " (" + r.get("Parameters") + ") -> "
                        + r.get("Return value") + " " + r.get("exception_str"))
                .collect(Collectors.toList());
        List<String> recorded = new java.util.ArrayList<>();
        for (int i = 0; i < 5; i++) {
            recorded.add("main Shop.price(int, java.lang.String) (" + i + ", apple) -> " + 3 * i + " null");
        }
        for (int i = 1; i <= 2; i++) {
            recorded.add("main Shop.price(int, java.lang.String) (-" + i + ", pear) -> null "
                    + "java.lang.IllegalArgumentException: negative -" + i);
        }
        assertEquals(recorded, rows);
        assertTrue(run.log().contains("setTriggers: method listeners registered\n"), run.log());
    }

    /** The first block of the README's section on triggers. */
    static String readmeTriggers() throws Exception {
        String readme = Files.readString(Path.of(System.getProperty("corvane.readme")));
        int section = readme.indexOf("\n## Triggers\n");
        assertTrue(section >= 0, "the README has a section on triggers");
        int start = readme.indexOf("```\n", section) + 4;
        return readme.substring(start, readme.indexOf("```\n", start));
    }

    @Test
    void theReadmeExampleRunsThroughCorvaneRunAsWritten(@TempDir Path dir) throws Exception {
        String triggers = readmeTriggers();
        assertTrue(triggers.startsWith("# a performance snapshot every 10 minutes"), triggers);
        Path file = Files.writeString(dir.resolve("triggers.txt"), triggers);
        Path snapshots = dir.resolve("snapshots");
        ToolRun run = ToolRun.of("run", "--trigger-file", file.toString(), "--dir", snapshots.toString(),
                "--agent-options", "tmpdir=" + dir, "--",
                System.getProperty("corvane.java"), "-cp", CLASSES, "Report");
        assertEquals(0, run.code(), run.err());
        assertEquals(1, run.errLines().stream().filter("bye"::equals).count(), run.err());
        // The timer's first snapshot is 10 minutes away: the one of the first render and the one at exit.
        List<Path> taken = snapshotsIn(snapshots);
        assertEquals(2, taken.size(), taken.toString());
        Path render = taken.stream().filter(p -> p.getFileName().toString().startsWith("render-")).findFirst()
                .orElseThrow();
        // Sampled while the first page rendered.
        String report = ToolRun.of("report", render.toString()).ok();
        assertTrue(report.contains("Report.render(int)"), report);

        ToolRun missing = ToolRun.of("run", "--trigger-file", dir.resolve("none.txt").toString(), "--",
                System.getProperty("corvane.java"), "-version");
        assertTrue(missing.err().contains("cannot read the triggers file " + dir.resolve("none.txt")), missing.err());
    }

    @Test
    void heapThresholdFiresOnceItHasBeenHeldForTheSetTimeAndNotBefore(@TempDir Path dir) throws Exception {
        String triggers = "HeapMemoryUsageListener usageThresholdPercent=50 minimumTimeToActivate=2s maxTriggerCount=1\n"
                + "  PrintMessage message=heap\\shigh\\sat\\s${Uptime}\n"
                + "HeapMemoryUsageListener usageThresholdPercent=50 minimumTimeToActivate=1h\n"
                + "  PrintMessage message=never\n";
        // 48 of 64 MB held for 6 s.
        AgentJvm.Run run = run(dir, triggers, "", "-Xmx64m", "Hold", "48", "6000");
        List<String> fired = linesOf(run.out()).stream().filter(l -> l.startsWith("heap high at ")).collect(Collectors.toList());
        assertEquals(1, fired.size(), run.out());
        long since = Long.parseLong(linesOf(run.out()).stream().filter(l -> l.startsWith("holding since "))
                .findFirst().orElseThrow().substring("holding since ".length()).trim());
        long at = Long.parseLong(fired.get(0).substring("heap high at ".length()).replace(" ms", "").trim());
        assertTrue(at - since >= 2000, "fired " + (at - since) + " ms after the heap was held");
        assertTrue(!run.out().contains("never"), run.out());
    }

    @Test
    void actionsStartAndStopRecordingsAsTheControlPortDoesAndSleepDelaysTheNext(@TempDir Path dir) throws Exception {
        Path snapshots = Files.createDirectories(dir.resolve("snapshots"));
        String triggers = "JvmStartListener\n"
                + "  StartTracing\n"
                + "TimerListener delay=1s maxTriggerCount=1\n"
                + "  StopCpuProfiling\n"
                + "  StartAllocatedObjectCounting\n"
                + "  CapturePerformanceSnapshot fileName=modes\n"
                + "TimerListener delay=1s maxTriggerCount=1\n"
                + "  PrintMessage message=before\\s${Uptime}\n"
                + "  Sleep duration=2s\n"
                + "  PrintMessage message=after\\s${Uptime}\n";
        AgentJvm.Run run = run(dir, triggers, ",dir=" + snapshots, "Idle", "7000");
        int tracing = run.log().indexOf("CPU tracing started");
        int counting = run.log().indexOf("Allocation recording started (object counting)");
        assertTrue(tracing >= 0 && counting > tracing, run.log());
        // The telemetry thread does not sleep in a Sleep, but the next action waits for it.
        List<Long> times = linesOf(run.out()).stream().filter(l -> l.startsWith("before ") || l.startsWith("after "))
                .map(l -> Long.parseLong(l.replaceAll("[^0-9]", ""))).collect(Collectors.toList());
        assertEquals(2, times.size(), run.out());
        assertTrue(times.get(1) - times.get(0) >= 2000, times.toString());
        // Beside the one at exit, which a recording run brings.
        assertTrue(snapshotsIn(snapshots).contains(snapshots.resolve("modes.snapshot")), snapshotsIn(snapshots).toString());
    }

    @Test
    void cpuThresholdFiresOnceItHasBeenHeldForTheSetTimeAndWaitsForItsEnd(@TempDir Path dir) throws Exception {
        // One busy thread of the machine's processors, well above 10 % even on a loaded machine.
        String triggers = "CpuUsageListener usageThresholdPercent=10 minimumTimeToActivate=2s maxTriggerCount=1\n"
                + "  PrintMessage message=cpu\\shigh\\sat\\s${Uptime}\n"
                + "  WaitForEventToFinish maxTimeToWait=1m\n"
                + "  PrintMessage message=cpu\\slow\\sat\\s${Uptime}\n"
                + "TimerListener delay=1s maxTriggerCount=1\n"
                + "  WaitForEventToFinish\n"
                + "  PrintMessage message=timer\\sat\\s${Uptime}\n";
        AgentJvm.Run run = run(dir, triggers, "", "Spin", "3000", "6000", "4000");
        long high = uptimeOf(run.out(), "cpu high at ");
        long low = uptimeOf(run.out(), "cpu low at ");
        long since = uptimeOf(run.out(), "spinning since ");
        long idle = uptimeOf(run.out(), "idle since ");
        assertTrue(high - since >= 2000, "fired " + (high - since) + " ms after the spinning began");
        // The wait ends with the spinning, within a few telemetry periods, not at its limit.
        assertTrue(low >= idle && low - idle < 3000, "low at " + low + ", idle since " + idle);
        // A timer's event is over as it fires: its wait ends at the next period, long before the program.
        assertTrue(uptimeOf(run.out(), "timer at ") < idle, run.out());
    }

    /** The uptime in ms on the one output line that begins with the prefix. */
    static long uptimeOf(String out, String prefix) {
        List<String> lines = linesOf(out).stream().filter(l -> l.startsWith(prefix)).collect(Collectors.toList());
        assertEquals(1, lines.size(), prefix + " in\n" + out);
        return Long.parseLong(lines.get(0).substring(prefix.length()).replace(" ms", "").trim());
    }
}
