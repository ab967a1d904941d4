package com.corvane.heap;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.TimeUnit;
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
        String library = System.getenv("CORVANE_TEST_JNI_LIBRARY");
        assertNotNull(library, "the test's JNI library (CORVANE_TEST_JNI_LIBRARY)");
        ProcessBuilder builder = new ProcessBuilder("/bin/sh", "-c", "ulimit -f 1000; exec \"$0\" \"$@\"",
                System.getProperty("corvane.java"), "-agentpath:" + System.getProperty("corvane.agent") + "=dir=" + dir,
                "-cp", System.getProperty("corvane.heap.classes"), "HeapShapes", file.toString(), library, "native")
                .redirectErrorStream(true);
        builder.environment().put("CORVANE_HOME", dir.resolve("home").toString());
        builder.environment().remove("JAVA_TOOL_OPTIONS");
        Process process = builder.start();
        String out = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertTrue(process.waitFor(300, TimeUnit.SECONDS));
        assertEquals(0, process.exitValue(), out);
        assertTrue(out.contains("\ncapture File too large\n"), out);
        assertFalse(Files.exists(file), "no broken snapshot is left");
    }
}
