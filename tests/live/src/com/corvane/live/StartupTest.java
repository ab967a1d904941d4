package com.corvane.live;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.runtime.Protocol;
import java.io.IOException;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The control port at start: which port, on which addresses, when, and the session marker that tells it. */
class StartupTest {
    @TempDir
    Path dir;

    private static ServerSocket occupy(int port) throws IOException {
        return new ServerSocket(port, 50, InetAddress.getLoopbackAddress());
    }

    @Test
    void aTakenPredefinedPortOrRangeStopsTheJvmWithCode20() throws Exception {
        try (ServerSocket first = occupy(0); ServerSocket second = occupy(first.getLocalPort() + 1)) {
            int port = first.getLocalPort();
            LiveJvm single = LiveJvm.launch(dir.resolve("single"), "port=" + port);
            assertEquals(20, single.waitForExit());
            assertTrue(single.output().contains("Cannot start: predefined port " + port + " is already in use"),
                    single.output());

            LiveJvm range = LiveJvm.launch(dir.resolve("range"), "port=" + port + "-" + (port + 1));
            assertEquals(20, range.waitForExit());
            assertTrue(range.output().contains("Cannot start: all ports in the predefined range [" + port + ", "
                    + (port + 1) + "] are already in use"), range.output());
        }
    }

    /**
     * The first of three free ports in a row below the system's ephemeral
     * range, where the outgoing connections of other tests cannot take them.
     */
    private static int freeRange() {
        for (int port = 20000 + new java.util.Random().nextInt(5000); ; port += 3) {
            try (ServerSocket a = occupy(port); ServerSocket b = occupy(port + 1); ServerSocket c = occupy(port + 2)) {
                return port;
            } catch (IOException e) {
                // one is taken: try the next three
            }
        }
    }

    @Test
    void thePortOfAPredefinedRangeIsTheFirstFreeOne() throws Exception {
        int port = freeRange();
        try (ServerSocket taken = occupy(port); LiveJvm jvm = LiveJvm.start(dir, "port=" + port + "-" + (port + 2))) {
            assertEquals(port + 1, jvm.port());
            assertMarked(jvm, "LiveApp", port + 1);
        }
    }

    /** All of the default range taken, by anybody: the system picks a port. */
    @Test
    void withTheDefaultRangeTakenTheAgentTakesAnEphemeralPort() throws Exception {
        List<ServerSocket> held = new ArrayList<>();
        try {
            for (int port = 10001; port <= 10010; port++) {
                try {
                    held.add(occupy(port));
                } catch (IOException e) {
                    // somebody else has it: taken all the same
                }
            }
            try (LiveJvm jvm = LiveJvm.start(dir, "")) {
                assertTrue(jvm.port() > 10010 || jvm.port() < 10001, "port " + jvm.port());
                send(jvm.port());
            }
        } finally {
            for (ServerSocket socket : held) {
                socket.close();
            }
        }
    }

    @Test
    void listenChoosesTheAddresses() throws Exception {
        try (LiveJvm loopback = LiveJvm.start(dir.resolve("loopback"), "listen=localhost");
             LiveJvm all = LiveJvm.start(dir.resolve("all"), "listen=all");
             LiveJvm numeric = LiveJvm.start(dir.resolve("numeric"), "listen=127.0.0.1")) {
            assertEquals(List.of("127.0.0.1"), listeningAddresses(loopback.port()));
            assertEquals(List.of("0.0.0.0"), listeningAddresses(all.port()));
            assertEquals(List.of("127.0.0.1"), listeningAddresses(numeric.port()));
            send(numeric.port());
        }
    }

    /** The local addresses that listen on the port, from the kernel's socket tables, as IPv4 text. */
    private static List<String> listeningAddresses(int port) throws IOException {
        List<String> addresses = new ArrayList<>();
        String hexPort = String.format(Locale.ROOT, "%04X", port);
        for (String table : new String[] {"/proc/net/tcp", "/proc/net/tcp6"}) {
            for (String line : Files.readAllLines(Path.of(table))) {
                String[] fields = line.trim().split("\\s+");
                if (fields.length < 4 || !fields[3].equals("0A") || !fields[1].endsWith(":" + hexPort)) {
                    continue;
                }
                String hex = fields[1].substring(0, fields[1].indexOf(':'));
                // IPv4 in the last four bytes; an IPv6 table holds the mapped or the unspecified address.
                String v4 = hex.substring(hex.length() - 8);
                if (hex.length() == 32 && hex.matches("0{32}")) {
                    addresses.add("0.0.0.0");
                    continue;
                }
                addresses.add(Integer.parseInt(v4.substring(6, 8), 16) + "." + Integer.parseInt(v4.substring(4, 6), 16)
                        + "." + Integer.parseInt(v4.substring(2, 4), 16) + "." + Integer.parseInt(v4.substring(0, 2), 16));
            }
        }
        return addresses;
    }

    /** With delay=-1 nothing listens and nothing is marked, until the application asks. */
    @Test
    void delayMinusOneWaitsForStartProfilerThreads() throws Exception {
        int port;
        try (ServerSocket probe = occupy(0)) {
            port = probe.getLocalPort();
        }
        try (LiveJvm jvm = LiveJvm.start(dir, "delay=-1,sessionname=LiveDelayed")) {
            assertFalse(jvm.output().contains("is listening"), jvm.output());
            assertFalse(Sessions.list().stream().anyMatch(s -> s.pid() == jvm.pid()));
            jvm.send("start-threads " + port);
            assertEquals("started true", jvm.awaitLine("started"));
            assertTrue(jvm.output().contains("agent is listening on port " + port), jvm.output());
            send(port);
            assertMarked(jvm, "LiveDelayed", port);
            jvm.send("start-threads " + port);
            assertEquals("started false", jvm.awaitLine("started"));
        }
    }

    @Test
    void withoutHttpEveryConnectionIsPackets() throws Exception {
        try (LiveJvm jvm = LiveJvm.start(dir, "_no_http")) {
            assertEquals("Invalid header magic number:42",
                    new Wire().l(42).i(Protocol.PACKET_GET_STATUS_REQ).send(jvm.port()).refusal());
        }
    }

    private static void send(int port) throws Exception {
        Wire.Reply reply = Wire.request(Protocol.PACKET_GET_STATUS_REQ).send(port);
        assertEquals(Protocol.PACKET_OK_RESP, reply.header());
    }

    private static void assertMarked(LiveJvm jvm, String name, int port) {
        assertTrue(Sessions.list().contains(new Sessions.Session((int) jvm.pid(), name, port)), Sessions.list()
                .toString());
    }
}
