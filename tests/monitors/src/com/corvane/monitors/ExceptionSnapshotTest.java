package com.corvane.monitors;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.ExceptionProfile;
import com.corvane.profile.ExceptionProfile.Entry;
import com.corvane.snapshot.Snapshot;
import com.corvane.testing.AgentJvm.Snapshotted;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * A real JVM with the agent runs ExceptionShapes (tests/monitors/java) on
 * several threads, and the exact counts by thread, class, throw place and
 * catch place are read back through the project's reader: an exception
 * rethrown on its way counts once from its first throw to its last catch,
 * one caught and thrown again as a cause counts as two exceptions, the JDK's
 * own thrown and caught inside it count, and an uncaught one has no catch
 * place. Exception telemetry is on by default, off by option until the
 * natives start it, and never there when disabled.
 */
class ExceptionSnapshotTest {
    // As in ExceptionShapes.
    static final int WORKERS = 3;
    static final int ROUNDS = 50;
    static final String PROGRAM = "ExceptionShapes";

    @TempDir
    Path dir;

    /** A row as "class thrown-at -> caught-at count"; places of the JDK by method alone. */
    static String describe(Entry entry) {
        return entry.exceptionClass() + " " + jdkMethodOnly(entry.thrownAt()) + " -> "
                + (entry.caughtAt() == null ? "uncaught" : jdkMethodOnly(entry.caughtAt())) + " " + entry.count();
    }

    static String jdkMethodOnly(String place) {
        return place.startsWith("java.") ? place.substring(0, place.lastIndexOf(':')) : place;
    }

    static List<String> rowsOf(ExceptionProfile profile, String thread) {
        List<Entry> rows = new ArrayList<>(profile.entries().stream().filter(e -> e.thread().equals(thread)).toList());
        rows.sort(Comparator.comparing(Entry::exceptionClass));
        return rows.stream().map(ExceptionSnapshotTest::describe).toList();
    }

    static String place(String method, String marker) throws Exception {
        return PROGRAM + "." + method + ":" + Shapes.line(PROGRAM, marker);
    }

    /** What one thread that ran `rounds` rounds of ExceptionShapes.rounds counted. */
    static List<String> expectedRows(long rounds) throws Exception {
        return List.of(
                PROGRAM + "$Cause " + place("cause()", "THROW-CAUSE") + " -> " + place("wrapping()", "CATCH-CAUSE")
                        + " " + rounds,
                PROGRAM + "$Deep " + place("deepest()", "THROW-DEEP") + " -> " + place("deep()", "CATCH-DEEP")
                        + " " + rounds,
                PROGRAM + "$Plain " + place("plain()", "THROW-PLAIN") + " -> " + place("plain()", "CATCH-PLAIN")
                        + " " + rounds,
                PROGRAM + "$Wrapper " + place("wrapping()", "THROW-WRAPPER") + " -> "
                        + place("wrapped()", "CATCH-WRAPPER") + " " + rounds,
                "java.lang.NumberFormatException java.lang.Integer.parseInt(java.lang.String, int) -> "
                        + "java.util.Scanner.hasNextInt(int) " + rounds);
    }

    static void checkWorkersAndDoomed(ExceptionProfile profile) throws Exception {
        for (int n = 1; n <= WORKERS; n++) {
            assertEquals(expectedRows((long) n * ROUNDS), rowsOf(profile, "worker-" + n), "worker-" + n);
        }
        List<Entry> doomed = profile.entries().stream().filter(e -> e.thread().equals("doomed")).toList();
        assertEquals(1, doomed.size(), profile.entries().toString());
        assertEquals(PROGRAM + "$Doom", doomed.get(0).exceptionClass());
        assertTrue(doomed.get(0).thrownAt().endsWith(":" + Shapes.line(PROGRAM, "THROW-DOOM")),
                doomed.get(0).thrownAt());
        assertNull(doomed.get(0).caughtAt());
        assertEquals(1, doomed.get(0).count());
    }

    @Test
    void onByDefaultCountingEveryThrowOncePerThreadClassAndPlace() throws Exception {
        Snapshot snapshot = Shapes.run(dir, "sampling", PROGRAM).snapshot();
        ExceptionProfile profile = ExceptionProfile.build(snapshot);
        checkWorkersAndDoomed(profile);
        assertEquals(expectedRows(1), rowsOf(profile, "warmup"));

        Shapes.Printed report = Shapes.report(snapshot);
        String json = report.json();
        long perClass = (long) ROUNDS * WORKERS * (WORKERS + 1) / 2 + 1;
        assertTrue(json.contains("{\"name\":\"ExceptionShapes$Plain\",\"count\":" + perClass + ","), json);
        assertTrue(json.contains("\"thread\":\"doomed\""), json);
        assertTrue(json.contains("\"caughtAt\":null"), json);
        // And the text that `corvane report` prints.
        String printed = report.text();
        assertTrue(printed.contains("ExceptionShapes$Plain in worker-3: thrown at " + place("plain()", "THROW-PLAIN")
                + ", caught at " + place("plain()", "CATCH-PLAIN") + "\n"), printed);
        assertTrue(printed.contains("ExceptionShapes$Doom in doomed: thrown at "), printed);
        assertTrue(printed.contains(", uncaught\n"), printed);
    }

    @Test
    void offByOptionUntilTheNativesStartItAndClearedByThem() throws Exception {
        ExceptionProfile profile = ExceptionProfile.build(
                Shapes.run(dir, "sampling,exceptions=off", PROGRAM, "control").snapshot());
        // Neither the warm-up nor the rounds before the clear are there.
        checkWorkersAndDoomed(profile);
        assertEquals(List.of(), rowsOf(profile, "warmup"));
    }

    @Test
    void disabledByOptionNothingIsCountedEvenWhenStarted() throws Exception {
        Snapshotted outcome = Shapes.run(dir, "sampling,exceptions=disable", PROGRAM, "control");
        assertEquals(0, outcome.snapshot().tables().exceptions.liveCount());
        assertTrue(outcome.run().log().contains("can_generate_exception_events: explicitly disabled with a startup"
                + " option"), outcome.run().log());
    }
}
