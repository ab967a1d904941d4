package com.corvane.live;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.Natives;
import com.corvane.runtime.SharedConstants;
import java.io.DataOutputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The natives of com.corvane.Natives in a JVM that loaded the library itself, as the tool does. */
class NativesTest {
    @TempDir
    Path dir;

    @BeforeAll
    static void load() {
        Natives.load();
    }

    @Test
    void factsOfThisProcessAndTheMachine() {
        int pid = (int) ProcessHandle.current().pid();
        assertEquals(pid, Natives.getPid());
        assertEquals(pid, Natives.getProcessID());
        assertEquals("linux-x86-64", Natives.getPlatform());
        assertTrue(Natives.is64BitMachine());
        assertTrue(Natives.getSystemPhysicalMemorySize() > 0);
        assertTrue(Natives.getTimeNsForTracing() > 0);
        assertEquals("/tmp/", Natives.getDefaultTaDir());
        assertEquals(0, Natives.getSpecialJavaPids().length);
        assertEquals(0, Natives.getProcessType(pid));
        assertEquals(-1, Natives.getOtherProcessCpuTimeNs(pid));
        assertFalse(Natives.isAdministrator());
        assertEquals(System.getProperty("user.name"), Natives.getProcessOwner(pid));
        assertTrue(Natives.getProcessPathByPid(pid).endsWith("/java"));
        assertTrue(Natives.getCommandLineByPid(pid)[0].endsWith("java"));
    }

    @Test
    void aDeadProcessHasNoPathAndIsNotLive() throws Exception {
        Process ended = new ProcessBuilder("true").start();
        ended.waitFor();
        int pid = (int) ended.pid();
        assertFalse(Natives.isLivePid(pid));
        assertNull(Natives.getProcessPathByPid(pid));
        assertNull(Natives.getProcessOwner(pid));
        assertEquals(0, Natives.getCommandLineByPid(pid).length);
        assertEquals("unknown", Natives.getSessionNameByCommandLine(pid));
        assertEquals("", Natives.getSessionNameFromMarker(pid));
    }

    @Test
    void inputIsCheckedByTheAgentsOwnCode() {
        assertEquals("", Natives.validateStartupOptions("sampling,port=10001-10005"));
        assertTrue(Natives.validateStartupOptions("nonsense").contains("nonsense"));
        assertEquals("parameter is null", Natives.validateStartupOptions(null));
        assertTrue(Natives.matches("com.acme.Main", "com.acme.*"));
        assertFalse(Natives.matches("org.acme.Main", "com.*"));
        assertThrows(RuntimeException.class, () -> Natives.retransformClass(String.class));
    }

    @Test
    void aRunningAgentIsFoundByItsMarker() throws Exception {
        try (LiveJvm jvm = LiveJvm.start(dir, "sessionname=LiveMarked")) {
            int pid = (int) jvm.pid();
            int[] pids = new int[64];
            int[] ports = new int[64];
            int count = Natives.fillMarked(SharedConstants.MARKER_MASK_AGENT, pids, ports);
            int found = -1;
            for (int i = 0; i < Math.min(count, pids.length); i++) {
                found = pids[i] == pid ? ports[i] : found;
            }
            assertEquals(jvm.port(), found);
            assertEquals("LiveMarked", Natives.getSessionNameFromMarker(pid));
            assertEquals("LiveApp", Natives.getSessionNameByCommandLine(pid));
            assertTrue(Natives.isLivePid(pid));
            int free = Natives.getFreePort(jvm.port(), jvm.port() + 1);
            assertEquals(jvm.port() + 1, free, "a marked port is not free");
            assertEquals(-1, Natives.getFreePort(jvm.port(), jvm.port()));
        }
    }

    @Test
    void longsAreReadFromAFile() throws Exception {
        Path file = dir.resolve("longs");
        try (DataOutputStream out = new DataOutputStream(Files.newOutputStream(file))) {
            out.writeLong(1);
            out.writeLong(-2);
            out.writeLong(Long.MAX_VALUE);
        }
        assertArrayEquals(new long[] {1, -2, Long.MAX_VALUE}, Natives.readLongArrayFromFile(file.toString(), 3));
        RuntimeException missing = assertThrows(RuntimeException.class,
                () -> Natives.readLongArrayFromFile(dir.resolve("none").toString(), 1));
        assertEquals("Failed to open file: " + dir.resolve("none"), missing.getMessage());
        RuntimeException shortFile = assertThrows(RuntimeException.class,
                () -> Natives.readLongArrayFromFile(file.toString(), 4));
        assertEquals("Read error: " + file, shortFile.getMessage());
    }
}
