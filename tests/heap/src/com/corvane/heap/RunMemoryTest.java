package com.corvane.heap;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.ToolRun;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * `corvane run --memory` leaves a memory snapshot at exit, and `corvane
 * report` tells its heap summary and class histogram, as text and as JSON,
 * with the counts and sizes that the reader finds in the same file.
 */
class RunMemoryTest {
    static final int NODES = MemorySnapshotTest.CHAIN + 3;

    @TempDir
    Path dir;

    @Test
    void runWithMemoryWritesTheHeapAtExitAndTheReportShowsItsClasses() throws Exception {
        Path exit = Files.createDirectories(dir.resolve("exit"));
        Path logs = Files.createDirectories(dir.resolve("logs"));
        ToolRun.of("run", "--memory", "--dir", exit.toString(), "--agent-options", "logdir=" + logs,
                "--", System.getProperty("corvane.java"), "-cp", System.getProperty("corvane.heap.classes"),
                "HeapShapes", "-", AgentJvm.jniLibrary(), "exit").ok();
        Path file = AgentJvm.onlyFile(exit, "-shutdown.snapshot");
        Snapshot snapshot = SnapshotReader.read(file);
        assertEquals(Snapshot.FLAG_MEMORY, snapshot.flags() & Snapshot.FLAG_MEMORY);
        HeapDump heap = HeapDump.read(snapshot, (done, total) -> 0);
        assertEquals(NODES, heap.instancesOf("HeapShapes$Node").size());
        long nodeBytes = 0;
        long allBytes = 0;
        for (int object = 1; object <= heap.objectCount(); object++) {
            allBytes += heap.shallowSize(object);
            if (heap.className(object).equals("HeapShapes$Node")) {
                nodeBytes += heap.shallowSize(object);
            }
        }

        String text = ToolRun.of("report", "--classes", "1000", file.toString()).ok();
        assertTrue(text.contains(String.format("Heap: %,d objects, %,d bytes (shallow), ", heap.objectCount(),
                allBytes)), text);
        Matcher row = Pattern.compile("\\n\\s+([\\d,]+)\\s+([\\d,]+)  HeapShapes\\$Node\\n").matcher(text);
        assertTrue(row.find(), text);
        assertEquals(String.format("%,d", NODES), row.group(1));
        assertEquals(String.format("%,d", nodeBytes), row.group(2));

        String json = ToolRun.of("report", "--json", "--classes", "3", file.toString()).ok();
        String compact = json.replaceAll("\\s", "");
        assertTrue(compact.contains("\"heap\":{\"objects\":" + heap.objectCount() + ",\"shallowSize\":" + allBytes
                + ","), json);
        assertEquals(3, compact.split("\"instances\":", -1).length - 1, "three classes: " + json);
    }
}
