package com.corvane.tracing;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.zip.Adler32;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * Real JVMs with the agent and tracing run NativeShapes (tests/natives/java):
 * wrapped natives, of the test's JNI library and of the JDK, must show in the
 * call tree with their exact invocation counts and where they were called,
 * and the program must compute what it computes without the agent.
 */
class NativeWrappingSnapshotTest {
    // As in NativeShapes.
    static final long ADDS = 30_000;
    static final long SCALES = 20_000;
    static final long ECHOES = 10_000;
    static final long CALL_BACKS = 10;
    static final long CALLS_FROM_NATIVE = 50;
    static final long ADLER_UPDATES = 5_000;

    static final String BODY = "NativeShapes.body";
    static final String ADLER = "Adler32.update";

    record Result(Map<String, Long> counts, String log) {
    }

    /** NativeShapes under tracing with the agent options; the invocation counts by filtered path. */
    static Result run(Path dir, String options) throws Exception {
        Path settings = Files.writeString(dir.resolve("tracing.txt"), "walltime=*\nadaptive=false\n");
        // The runtime class archive in a folder of its own, not the one that other agents on the machine share.
        Snapshotted jvm = AgentJvm.atExit(dir, "tracing,tracing_settings_path=" + settings + ",tmpdir=" + dir + options,
                System.getProperty("corvane.natives.classes"), "NativeShapes", AgentJvm.jniLibrary());
        assertTrue(jvm.run().out().contains(expectedOutput()), jvm.run().out());
        CallTree tree = CallTree.of(jvm.snapshot(), "natives-worker");
        Map<String, Long> counts = new TreeMap<>();
        tree.byFilteredPath(m -> m.startsWith("NativeShapes.") || m.equals(ADLER)).forEach((path, frames) -> {
            counts.put(path, frames.stream().mapToLong(CallTree.Frame::invocations).sum());
        });
        return new Result(counts, jvm.run().log());
    }

    /** What NativeShapes prints, computed here without natives. */
    static String expectedOutput() {
        long sum = 0;
        for (int i = 0; i < ADDS; i++) {
            sum += i;
        }
        double scaled = 0;
        for (int i = 0; i < SCALES; i++) {
            scaled += 0.5f * (double) i + 1;
        }
        Adler32 adler = new Adler32();
        for (int i = 0; i < ADLER_UPDATES; i++) {
            adler.update(i);
        }
        return "sum " + sum + " scaled " + scaled + " echoed " + ECHOES + " fromNative " + CALL_BACKS * CALLS_FROM_NATIVE
                + " adler " + adler.getValue();
    }

    /** The tree with NativeShapes' own natives wrapped or not; the JDK's Adler32 native is wrapped in both. */
    static Map<String, Long> expectedTree(boolean ownWrapped) {
        Map<String, Long> expected = new TreeMap<>();
        expected.put(BODY, 1L);
        expected.put(BODY + "/NativeShapes.<init>", 1L);
        expected.put(BODY + "/NativeShapes.echoed", ECHOES);
        expected.put(BODY + "/" + ADLER, ADLER_UPDATES);
        expected.put(BODY + "/" + ADLER + "/" + ADLER, ADLER_UPDATES);
        if (ownWrapped) {
            expected.put(BODY + "/NativeShapes.add", ADDS);
            expected.put(BODY + "/NativeShapes.scale", SCALES);
            expected.put(BODY + "/NativeShapes.echoed/NativeShapes.echo", ECHOES);
            expected.put(BODY + "/NativeShapes.callBack", CALL_BACKS);
            expected.put(BODY + "/NativeShapes.callBack/NativeShapes.fromNative", CALL_BACKS * CALLS_FROM_NATIVE);
        } else {
            expected.put(BODY + "/NativeShapes.fromNative", CALL_BACKS * CALLS_FROM_NATIVE);
        }
        return expected;
    }

    @Test
    void wrappedNativesAreCountedWhereTheyAreCalled(@TempDir Path dir) throws Exception {
        Result result = run(dir, "");
        assertEquals(expectedTree(true), result.counts());
    }

    @Test
    void disablenativesLeavesEveryNativeUnwrapped(@TempDir Path dir) throws Exception {
        Result result = run(dir, ",disablenatives");
        Map<String, Long> expected = expectedTree(false);
        expected.remove(BODY + "/" + ADLER + "/" + ADLER);
        assertEquals(expected, result.counts());
    }

    @Test
    void theClassExclusionFileReplacesTheBuiltInList(@TempDir Path dir) throws Exception {
        // AgentJvm runs the program with dir/home as the agent's home.
        Path settings = Files.createDirectories(dir.resolve("home/.kzt"));
        Files.writeString(settings.resolve("disable_natives.txt"), "# own natives stay as they are\nNativeShape\n");
        Result result = run(dir, ",debug=bci");
        assertEquals(expectedTree(false), result.counts());
        // Each log line begins with the agent's version and uptime.
        List<String> log = List.of(result.log().split("\n"));
        assertTrue(log.stream().anyMatch(line -> line.endsWith(": N update")), "Adler32.update(int, int) was wrapped");
        assertTrue(log.stream().noneMatch(line -> line.endsWith(": N add")), "NativeShapes.add was not");
    }
}
