package com.corvane.heap;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.AgentJvm;
import java.nio.file.Files;
import java.nio.file.Path;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * A memory snapshot that cannot be written whole, as on a full disk (here
 * the process may write no file beyond 1000 KiB, and the heap part goes
 * past that): the capture answers why in one line and leaves no file.
 */
class FullDiskTest {
    @TempDir
    Path dir;

    @Test
    void aSnapshotThatCannotBeWrittenLeavesNoFileAndSaysWhy() throws Exception {
        Path file = dir.resolve("full.snapshot");
        AgentJvm.Run run = AgentJvm.runLimited("ulimit -f 1000", dir, "dir=" + dir, System.getProperty("corvane.heap.classes"),
                "HeapShapes", file.toString(), AgentJvm.jniLibrary(), "native");
        String out = run.out();
        assertEquals(0, run.exitCode(), out);
        assertTrue(out.contains("\ncapture File too large\n"), out);
        assertFalse(Files.exists(file), "no broken snapshot is left");
    }
}
