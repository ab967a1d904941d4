package com.corvane.live;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.runtime.Protocol;
import java.io.InputStream;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.stream.Stream;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * Requests that break the rules, and clients that say nothing or read
 * nothing: each gets its error or a closed connection, nobody else waits
 * for them, and the agent and the application run on without losing
 * descriptors or files.
 */
class HostileRequestsTest {
    private static final int TIMEOUT_MS = 2000;

    @TempDir
    static Path ourDir;
    private static LiveJvm ourJvm;
    private static long ourSessionId;

    @BeforeAll
    static void start() throws Exception {
        ourJvm = LiveJvm.start(ourDir, "_socket_timeout_ms=" + TIMEOUT_MS + ",dir=public");
        ourSessionId = ourJvm.sessionId();
    }

    @AfterAll
    static void stop() throws Exception {
        ourJvm.close();
    }

    private static Wire.Reply send(Wire request) throws Exception {
        return request.send(ourJvm.port());
    }

    private static void assertRefused(String message, Wire request) throws Exception {
        assertEquals(message, send(request).refusal());
    }

    private static void assertServed() throws Exception {
        send(Wire.request(Protocol.PACKET_GET_STATUS_REQ)).ok(ourSessionId).l();
    }

    private static long openDescriptors() throws Exception {
        try (Stream<Path> files = Files.list(Path.of("/proc", String.valueOf(ourJvm.pid()), "fd"))) {
            return files.count();
        }
    }

    @Test
    void brokenRequestsGetTheirErrorAndTheConnectionEnds() throws Exception {
        long descriptors = openDescriptors();
        int huge = Integer.MAX_VALUE;
        assertRefused("Unknown packet type: 7. Reason: Corvane Java Profiler agent and UI version mismatch",
                Wire.request(7).header(Protocol.PACKET_GET_STATUS_REQ));
        assertRefused("Negative string length: -5", Wire.request(Protocol.PACKET_ADVANCE_GENERATION_REQ).i(-5));
        assertRefused("negative count: -1", Wire.request(Protocol.PACKET_SET_PROBES).i(-1));
        assertRefused("Count too large: " + huge, Wire.request(Protocol.PACKET_REGISTER_AND_LOAD_PROBES_BY_BYTECODE).i(huge));
        assertRefused("Block too long: " + huge + " bytes",
                Wire.request(Protocol.PACKET_START_CPU_PROFILING_REQ).l(4).i(huge).i(0));
        assertRefused("negative count: -2",
                Wire.request(Protocol.PACKET_REGISTER_AND_LOAD_PROBES_BY_BYTECODE).i(1).i(-2));
        assertRefused("Invalid header magic number:42",
                Wire.request(Protocol.PACKET_PACKET_SEQUENCE_START).l(42).i(Protocol.PACKET_GET_STATUS_REQ));

        // Cut short: no answer, the connection ends.
        for (Wire cut : new Wire[] {Wire.request(Protocol.PACKET_START_CPU_PROFILING_REQ).i(0),
            Wire.request(Protocol.PACKET_SET_TRIGGERS).i(10).i(0x41414141),
            Wire.request(Protocol.PACKET_PACKET_SEQUENCE_START).l(Protocol.MAGIC)}) {
            assertEquals(0, send(cut).myBytes.length);
        }
        // Whatever does not open with the magic is a web browser's.
        for (Wire notPackets : new Wire[] {new Wire().l(42).i(Protocol.PACKET_GET_STATUS_REQ), new Wire().i(5)}) {
            String answer = new String(send(notPackets).myBytes, StandardCharsets.US_ASCII);
            assertTrue(answer.startsWith("HTTP/1.1 400 Bad Request\r\n"), answer);
        }
        assertServed();
        assertTrue(ourJvm.isAlive());
        assertTrue(openDescriptors() <= descriptors + 2, "descriptors: " + descriptors + " -> " + openDescriptors());
    }

    /** A client that connects and says nothing, or stops halfway, holds only its own connection. */
    @Test
    void silentClientsKeepNobodyOut() throws Exception {
        try (Socket silent = new Socket("127.0.0.1", ourJvm.port());
             Socket halfway = new Socket("127.0.0.1", ourJvm.port())) {
            halfway.getOutputStream().write(Wire.request(Protocol.PACKET_ADVANCE_GENERATION_REQ).i(100).bytes());
            for (int i = 0; i < 5; i++) {
                assertServed();
            }
            // Dropped after the socket time-out, with nothing said.
            silent.setSoTimeout(10 * TIMEOUT_MS);
            halfway.setSoTimeout(10 * TIMEOUT_MS);
            assertEquals(-1, silent.getInputStream().read());
            assertEquals(-1, halfway.getInputStream().read());
        }
        assertServed();
    }

    /** A client that asks for a large file and reads none of it holds no lock either. */
    @Test
    void aClientThatReadsNothingKeepsNobodyOut() throws Exception {
        Path shared = Path.of(System.getProperty("java.io.tmpdir"), "corvane-snapshots");
        Files.createDirectories(shared);
        Path big = Files.createTempFile(shared, "hostile-", ".snapshot");
        try {
            Files.write(big, new byte[32 << 20]);
            try (Socket reader = new Socket("127.0.0.1", ourJvm.port())) {
                reader.getOutputStream().write(Wire.request(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ)
                        .s(big.toString()).bytes());
                Thread.sleep(500);
                for (int i = 0; i < 5; i++) {
                    assertServed();
                }
                // The transfer is still there for whoever reads it in the end.
                InputStream in = reader.getInputStream();
                reader.setSoTimeout(60_000);
                long count = in.readAllBytes().length;
                assertEquals(12 + 8 + 8 + (32 << 20), count);
            }
        } finally {
            Files.delete(big);
        }
        assertServed();
    }

    @Test
    void theRequestBufferFilesAreGone() throws Exception {
        send(Wire.request(Protocol.PACKET_UPDATE_DATABASE_TABLES).i(-1).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0)
                .i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0).i(0)
                .i(0).i(0).i(0).i(0)).ok(ourSessionId);
        try (Stream<Path> files = Files.list(ourDir.resolve("tmp"))) {
            assertEquals(0, files.filter(p -> p.getFileName().toString().startsWith("kzttmp")).count());
        }
    }
}
