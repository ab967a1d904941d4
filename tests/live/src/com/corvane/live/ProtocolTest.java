package com.corvane.live;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.runtime.Protocol;
import com.corvane.runtime.SharedConstants;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.snapshot.TableStreamReader;
import com.corvane.snapshot.Tables;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.zip.CRC32;
import java.util.zip.Inflater;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Every request type of the control protocol on a real agent, checked byte for byte. */
class ProtocolTest {
    /** The refusal of a recording that has not come to this agent yet. */
    private static final String NOT_AVAILABLE = " is not available in this agent";

    @TempDir
    static Path ourDir;
    private static LiveJvm ourJvm;
    private static long ourSessionId;

    @BeforeAll
    static void start() throws Exception {
        // The runtime class archive in a folder of its own: the shared default may be rewritten by another
        // agent of this version on the machine just as this JVM loads it.
        ourJvm = LiveJvm.start(ourDir, "sessionname=LiveProtocol,telemetryperiod=200,dir=" + ourDir.resolve("snaps")
                + ",tmpdir=" + ourDir);
        ourSessionId = ourJvm.sessionId();
    }

    @AfterAll
    static void stop() throws Exception {
        ourJvm.close();
    }

    private static int port() {
        return ourJvm.port();
    }

    private static Wire.Reply send(Wire request) throws Exception {
        return request.send(port());
    }

    @Test
    void agentInformationIsTheBareHeaderAndTenFields() throws Exception {
        Wire.Reply reply = send(Wire.request(Protocol.PACKET_GET_AGENT_INFO_REQ));
        assertEquals(Protocol.PACKET_OK_RESP, reply.header());
        assertEquals(20190410, reply.i());
        assertEquals("Corvane Java Profiler 2019.8-b109", reply.string());
        long capabilities = reply.l();
        assertEquals(0, capabilities & SharedConstants.CAPABILITY_ATTACHED_AGENT);
        assertEquals("LiveProtocol", reply.string());
        assertEquals("{sessionname}-{date}", reply.string());
        assertEquals(ourSessionId, reply.l());
        assertNotEquals(0, ourSessionId);
        assertEquals("", reply.string());
        assertEquals(ourDir.resolve("snaps").toString(), reply.string());
        assertEquals(ourJvm.pid(), reply.i());
        assertEquals(3600 * 1000 / 200, reply.i());
        reply.end();
    }

    /** The lines of a file that triggers write, once there are at least `least` of them (10 s at most). */
    private static List<String> linesOnceThere(Path file, int least) throws Exception {
        for (int i = 0; i < 100 && (!Files.exists(file) || Files.readAllLines(file).size() < least); i++) {
            Thread.sleep(100);
        }
        return Files.exists(file) ? Files.readAllLines(file) : List.of();
    }

    @Test
    void triggersSetAgainKeepTheirCountersAndABadTextChangesNothing() throws Exception {
        Path file = ourDir.resolve("fired.txt");
        String once = "TimerListener delay=200ms maxTriggerCount=1\n  PrintMessage message=fired output=" + file + "\n";
        send(Wire.request(Protocol.PACKET_SET_TRIGGERS).s(once).b(0)).ok(ourSessionId).end();
        assertEquals(List.of("fired"), linesOnceThere(file, 1));
        // The same text again: the listener is the one that fired already, and fires no more.
        send(Wire.request(Protocol.PACKET_SET_TRIGGERS).s(once).b(0)).ok(ourSessionId).end();
        Thread.sleep(1000);
        assertEquals(List.of("fired"), Files.readAllLines(file));
        // Another text is a new listener, with its own count.
        String other = once.replace("message=fired", "message=again");
        send(Wire.request(Protocol.PACKET_SET_TRIGGERS).s(other).b(0)).ok(ourSessionId).end();
        assertEquals(List.of("fired", "again"), linesOnceThere(file, 2));

        assertEquals("Cannot parse triggers: wrong duration postfix: 5x",
                send(Wire.request(Protocol.PACKET_SET_TRIGGERS).s("TimerListener delay=5x\n").b(1)).refusal());
        Wire.Reply triggers = send(Wire.request(Protocol.PACKET_GET_TRIGGERS));
        assertEquals(Protocol.PACKET_OK_RESP, triggers.header());
        assertEquals("TimerListener maxTriggerCount=1 delay=200ms\n  PrintMessage message=again output=" + file + "\n",
                triggers.string());
        triggers.end();
        send(Wire.request(Protocol.PACKET_SET_TRIGGERS).s("").b(0)).ok(ourSessionId).end();
    }

    @Test
    void aMethodTriggerSetOverThePortFiresUntilItsTextIsReplaced() throws Exception {
        Path file = ourDir.resolve("greetings.txt");
        String trigger = "MethodListener methodPattern=LiveApp:greet(java.lang.String) fillParams=true"
                + " fillReturnValue=true\n  onreturn:PrintMessage message=${Params}\\s->\\s${ReturnValue} output=" + file
                + "\n";
        send(Wire.request(Protocol.PACKET_SET_TRIGGERS).s(trigger).b(0)).ok(ourSessionId).end();
        ourJvm.send("greet ann");
        ourJvm.awaitLine("greeted hello ann");
        send(Wire.request(Protocol.PACKET_SET_TRIGGERS).s("").b(0)).ok(ourSessionId).end();
        ourJvm.send("greet bob");
        ourJvm.awaitLine("greeted hello bob");
        assertEquals(List.of("ann -> hello ann"), Files.readAllLines(file));
        String log = ourJvm.log();
        assertTrue(log.contains("setTriggers: to unregister: 1\n"), log);
        assertTrue(log.contains("Unregistered probe classes: 1\n  Unregistered: com.corvane.probes.triggers."
                + "MethodListenerProbe"), log);
    }

    @Test
    void cpuProfilingStartsOnceAndStops() throws Exception {
        assertEquals("Invalid mode: 8", send(Wire.request(Protocol.PACKET_START_CPU_PROFILING_REQ).l(8).s(null))
                .okOrError(ourSessionId));
        send(Wire.request(Protocol.PACKET_START_CPU_PROFILING_REQ).l(4).s("sampling_period_ms=10\n"))
                .ok(ourSessionId).end();
        assertEquals("Cannot start CPU tracing: CPU profiling (sampling) already started",
                send(Wire.request(Protocol.PACKET_START_CPU_PROFILING_REQ).l(12).s(null)).refusal());
        assertEquals(SharedConstants.CPU_SAMPLING, status() & SharedConstants.CPU_PROFILING_MASK);
        send(Wire.request(Protocol.PACKET_STOP_CPU_PROFILING_REQ)).ok(ourSessionId).end();
        send(Wire.request(Protocol.PACKET_CLEAR_CPU_DATA)).ok(ourSessionId).end();
        assertEquals(0, status() & SharedConstants.CPU_PROFILING_MASK);
    }

    private static long status() throws Exception {
        Wire.Reply reply = send(Wire.request(Protocol.PACKET_GET_STATUS_REQ)).ok(ourSessionId);
        long status = reply.l();
        reply.end();
        return status;
    }

    @Test
    void switchesAnswerTheStandardAnswer() throws Exception {
        Wire[] requests = {Wire.request(Protocol.PACKET_STOP_STACK_TELEMETRY),
            Wire.request(Protocol.PACKET_START_STACK_TELEMETRY), Wire.request(Protocol.PACKET_STOP_EXCEPTION_PROFILING),
            Wire.request(Protocol.PACKET_START_EXCEPTION_PROFILING), Wire.request(Protocol.PACKET_CLEAR_EXCEPTIONS),
            Wire.request(Protocol.PACKET_START_MONITOR_PROFILING), Wire.request(Protocol.PACKET_STOP_MONITOR_PROFILING),
            Wire.request(Protocol.PACKET_CLEAR_MONITOR_DATA), Wire.request(Protocol.PACKET_CLEAR_CPU_DATA),
            Wire.request(Protocol.PACKET_ADVANCE_GENERATION_REQ).s("from the test"),
            Wire.request(Protocol.PACKET_SET_TRIGGERS).s("").b(0)};
        for (Wire request : requests) {
            send(request).ok(ourSessionId).end();
        }
        assertEquals(SharedConstants.INITIAL_STATUS, status() & SharedConstants.INITIAL_STATUS);
    }

    /** Recordings that later work brings answer as they do then, or are refused until it has come. */
    @Test
    void requestsOfRecordingsStillToComeAnswerOrAreRefused() throws Exception {
        Wire[] requests = {Wire.request(Protocol.PACKET_START_ALLOCATION_RECORDING_REQ).i(10).i(4096).l(2),
            Wire.request(Protocol.PACKET_STOP_ALLOCATION_RECORDING_REQ), Wire.request(Protocol.PACKET_CLEAR_ALLOCATION_DATA),
            Wire.request(Protocol.PACKET_CLEAR_EVENT_TABLES).s("Messages"),
            Wire.request(Protocol.PACKET_MESSAGE).s("Test").s("a message").s(null),
            Wire.request(Protocol.PACKET_SET_PROBES).i(0),
            Wire.request(Protocol.PACKET_RETRANSFORM_CLASSES_LOADED_BEFORE_AGENT_ATTACHED)};
        for (Wire request : requests) {
            answeredOrRefused(request, reply -> { });
        }
        assertEquals("Error: no probes found in classes: ",
                send(Wire.request(Protocol.PACKET_REGISTER_AND_LOAD_PROBES_BY_BYTECODE).i(0)).refusal());
        // Triggers set are given back in the form they were parsed into.
        send(Wire.request(Protocol.PACKET_SET_TRIGGERS).s("TimerListener delay=5m\n  Empty\n").b(0)).ok(ourSessionId).end();
        Wire.Reply triggers = send(Wire.request(Protocol.PACKET_GET_TRIGGERS));
        assertEquals(Protocol.PACKET_OK_RESP, triggers.header());
        assertEquals("TimerListener maxTriggerCount=-1 delay=5m\n  Empty\n", triggers.string());
        triggers.end();
    }

    @Test
    void answersCarryTheirValues() throws Exception {
        Wire.Reply gc = send(Wire.request(Protocol.PACKET_FORCE_GC_REQ)).ok(ourSessionId);
        assertTrue(gc.l() > 0);
        assertTrue(gc.l() > 0);
        gc.end();

        Wire.Reply settings = send(Wire.request(Protocol.PACKET_ALLOCATION_RECORDING_SETTINGS_GET_REQ)).ok(ourSessionId);
        assertEquals(10, settings.i());
        assertEquals(4096, settings.i());
        settings.end();

        Wire.Reply dump = send(Wire.request(Protocol.PACKET_GET_JVM_THREAD_DUMP_REQ)).ok(ourSessionId);
        String text = dump.string();
        assertTrue(text.contains("\"live-spinner\"") && text.contains("LiveApp.spinForever"), text);
        dump.end();

        Wire.Reply statistics = send(Wire.request(Protocol.PACKET_GET_DATABASE_STATISTICS)).ok(ourSessionId);
        assertTrue(statistics.string().contains("telemetryLimit=18000"));
        statistics.end();

        awaitTelemetry();
        Wire.Reply oome = send(Wire.request(Protocol.PACKET_OOME_DUMPER_GET_STATUS_REQ)).ok(ourSessionId);
        assertEquals(1, oome.i());
        oome.end();

        Wire.Reply frozen = send(Wire.request(Protocol.PACKET_GET_FROZEN_THREADS).l(0)).ok(ourSessionId);
        int count = frozen.i();
        assertEquals(count * 16, frozen.left());
    }

    @Test
    void dispatchCommandsAnswerAString() throws Exception {
        assertEquals("linux-x86-64", dispatch("d_get_platform"));
        String info = dispatch("d_getVmInfo");
        assertTrue(info.matches("\\{\"cpuCount\": \\d+, \"user\": \".+\", \"commandLine\": \".* LiveApp\","
                + " \"cpuTimeNs\": \\d+, \"timeNs\": \\d+\\}"), info);
        assertTrue(dispatch("d_get_total_created_object_count").matches("\\d+"));
        assertTrue(dispatch("d_get_total_created_object_size").matches("\\d+"));
        assertEquals("", dispatch("d_clear_charts"));
        assertEquals("Unknown dispatch command: d_nothing. Reason: Corvane Java Profiler agent and UI version"
                + " mismatch", send(Wire.request(Protocol.PACKET_DISPATCH).s("d_nothing")).refusal());
    }

    private static String dispatch(String command) throws Exception {
        Wire.Reply reply = send(Wire.request(Protocol.PACKET_DISPATCH).s(command)).ok(ourSessionId);
        String answer = reply.string();
        reply.end();
        return answer;
    }

    /** The rows of the telemetry and properties tables newer than the stamps. */
    private static Tables tables(int mask, int... stamps) throws Exception {
        Wire request = Wire.request(Protocol.PACKET_UPDATE_DATABASE_TABLES).i(mask);
        for (int stamp : stamps) {
            request.i(stamp);
        }
        Wire.Reply reply = send(request).ok(ourSessionId);
        Tables tables = new Tables();
        TableStreamReader.read(new ByteArrayInputStream(reply.raw(reply.left())), mask, tables);
        return tables;
    }

    private static void awaitTelemetry() throws Exception {
        for (int i = 0; i < 300 && tables(1 << Tables.TELE, 0).telemetry.liveCount() < 2; i++) {
            Thread.sleep(100);
        }
    }

    @Test
    void tableDeltasComeAsAStreamEndedByMinusOne() throws Exception {
        Wire.Reply none = send(Wire.request(Protocol.PACKET_UPDATE_DATABASE_TABLES).i(0)).ok(ourSessionId);
        assertArrayEquals(new byte[] {-1, -1, -1, -1}, none.raw(4), "mask 0 reads no stamp and sends no table");
        none.end();

        awaitTelemetry();
        Tables all = tables(1 << Tables.TELE | 1 << Tables.PROPERTIES, 0, 0);
        assertTrue(all.properties.liveCount() > 6, all.properties.liveEntries().toString());
        int newest = 0;
        long lastUptime = -1;
        for (var entry : all.telemetry.liveEntries()) {
            int[] values = entry.row().values();
            String row = java.util.Arrays.toString(values);
            assertTrue(values[SharedConstants.TELEMETRY_HEAP_USED_KB] > 0, row);
            assertTrue(values[SharedConstants.TELEMETRY_LIVE_THREADS] >= 2, row);
            assertTrue(values[SharedConstants.TELEMETRY_LOADED_CLASSES] > 100, row);
            // A wake-up takes a sample at once: two may fall into one tenth of a second.
            assertTrue(values[SharedConstants.TELEMETRY_UPTIME_TENTHS] >= lastUptime, row);
            lastUptime = values[SharedConstants.TELEMETRY_UPTIME_TENTHS];
            newest = Math.max(newest, entry.stamp());
        }
        assertTrue(all.properties.get(SharedConstants.TELEMETRY_HEAP_MAX_KB_PROPERTY).value() > 0);
        Tables delta = tables(1 << Tables.TELE, newest);
        for (var entry : delta.telemetry.entries()) {
            assertTrue(entry.stamp() > newest, "a delta holds only newer rows");
        }
    }

    @Test
    void snapshotsAreCapturedListedAndTransferred() throws Exception {
        Wire.Reply memory = send(Wire.request(Protocol.PACKET_CAPTURE_SNAPSHOT_REQ).l(SharedConstants.SNAPSHOT_FLAG_MEMORY)
                .s("memory-{pid}").s(null));
        int memoryType;
        while ((memoryType = memory.header()) == Protocol.PACKET_PROGRESS) {
            memory.i();
        }
        assertEquals(Protocol.PACKET_OK_RESP, memoryType);
        assertEquals(ourSessionId, memory.l());
        Snapshot memorySnapshot = SnapshotReader.read(Path.of(memory.string()));
        memory.end();
        assertTrue(memorySnapshot.memoryPart() != null, "the heap is in the snapshot");

        Wire.Reply captured = send(Wire.request(Protocol.PACKET_CAPTURE_SNAPSHOT_REQ).l(0).s("captured-{pid}").s(null));
        List<Integer> progress = new ArrayList<>();
        int type;
        while ((type = captured.header()) == Protocol.PACKET_PROGRESS) {
            progress.add(captured.i());
        }
        assertEquals(Protocol.PACKET_OK_RESP, type);
        assertEquals(ourSessionId, captured.l());
        String path = captured.string();
        captured.end();
        assertEquals(ourDir.resolve("snaps").resolve("captured-" + ourJvm.pid() + ".snapshot").toString(), path);
        assertTrue(!progress.isEmpty() && progress.get(progress.size() - 1) == 99, progress.toString());
        for (int i = 1; i < progress.size(); i++) {
            assertTrue(progress.get(i) > progress.get(i - 1), progress.toString());
        }
        Snapshot snapshot = SnapshotReader.read(Path.of(path));
        assertEquals("LiveProtocol", snapshot.header().get("session_name"));
        byte[] file = Files.readAllBytes(Path.of(path));

        Wire.Reply list = send(Wire.request(Protocol.PACKET_GET_TRANSFERABLE_SNAPSHOTS)).ok(ourSessionId);
        boolean listed = false;
        for (int i = list.i(); i > 0; i--) {
            String listedPath = list.string();
            int digest = list.i();
            long size = list.l();
            long modified = list.l();
            if (listedPath.equals(path)) {
                listed = true;
                CRC32 crc = new CRC32();
                crc.update(file, 0, Math.min(file.length, 65536));
                assertEquals((int) crc.getValue(), digest);
                assertEquals(file.length, size);
                assertEquals(Files.getLastModifiedTime(Path.of(path)).toMillis(), modified);
            }
        }
        list.end();
        assertTrue(listed);

        Wire.Reply plain = send(Wire.request(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ).s(path)).ok(ourSessionId);
        assertEquals(file.length, plain.l());
        assertArrayEquals(file, plain.raw(file.length));
        plain.end();

        Wire.Reply compressed = send(Wire.request(Protocol.PACKET_TRANSFER_SNAPSHOT_COMPRESSED_REQ).s(path))
                .ok(ourSessionId);
        assertEquals(file.length, compressed.l());
        ByteArrayOutputStream inflated = new ByteArrayOutputStream();
        while (compressed.left() > 0) {
            byte[] block = compressed.raw(compressed.i());
            assertTrue(block.length <= Protocol.TRANSFER_COMPRESSED_CHUNK_SIZE);
            Inflater inflater = new Inflater(true);
            inflater.setInput(block);
            byte[] out = new byte[Protocol.TRANSFER_UNCOMPRESSED_CHUNK_SIZE];
            inflated.write(out, 0, inflater.inflate(out));
            inflater.end();
        }
        assertArrayEquals(file, inflated.toByteArray());

        for (String[] refused : new String[][] {
            {"/etc/passwd", "File cannot be transferred: unknown snapshot /etc/passwd"},
            {path + ".gone", "File cannot be transferred: unknown snapshot " + path + ".gone"}}) {
            assertEquals(refused[1], send(Wire.request(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ).s(refused[0])).refusal());
        }
        Files.delete(Path.of(path));
        Wire.Reply gone = send(Wire.request(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ).s(path));
        assertEquals("The file to transfer does not exist: " + path, gone.error());
    }

    /** The JVM's own dumper: on request, and on OutOfMemoryError, where the agent's watcher finds the file. */
    @Test
    void hprofDumpsAreWrittenAndFetched() throws Exception {
        Wire.Reply captured = send(Wire.request(Protocol.PACKET_CAPTURE_SNAPSHOT_REQ)
                .l(SharedConstants.SNAPSHOT_FLAG_HPROF).s("dump").s(null)).ok(ourSessionId);
        Path hprof = Path.of(captured.string());
        captured.end();
        assertEquals(ourDir.resolve("snaps/dump.hprof"), hprof);
        byte[] head = Files.readAllBytes(hprof);
        assertEquals("JAVA PROFILE 1.0.2", new String(head, 0, 18, java.nio.charset.StandardCharsets.US_ASCII));

        ourJvm.send("oome");
        ourJvm.awaitLine("oome after ");
        String dump = ourDir.resolve("java_pid" + ourJvm.pid() + ".hprof").toString();
        Wire.Reply transfer = send(Wire.request(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ).s(dump));
        for (int i = 0; i < 300 && transfer.okOrError(ourSessionId) != null; i++) {
            Thread.sleep(100);
            transfer = send(Wire.request(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ).s(dump));
        }
        assertEquals(Files.size(Path.of(dump)), transfer.l());
    }

    /** Between start and end requests share one connection; after the end, one more is served. */
    @Test
    void sequencesKeepTheConnectionOpen() throws Exception {
        Wire three = Wire.request(Protocol.PACKET_PACKET_SEQUENCE_START).header(Protocol.PACKET_GET_STATUS_REQ)
                .header(Protocol.PACKET_GET_STATUS_REQ).header(Protocol.PACKET_GET_STATUS_REQ)
                .header(Protocol.PACKET_PACKET_SEQUENCE_END);
        Wire.Reply replies = three.send(port());
        for (int i = 0; i < 3; i++) {
            replies.ok(ourSessionId).l();
        }
        replies.end();

        Wire after = Wire.request(Protocol.PACKET_PACKET_SEQUENCE_START).header(12345)
                .header(Protocol.PACKET_PACKET_SEQUENCE_END).header(Protocol.PACKET_GET_STATUS_REQ)
                .header(Protocol.PACKET_GET_STATUS_REQ);
        Wire.Reply two = after.send(port());
        assertTrue(two.error().startsWith("Unknown packet type: 12345. Reason: "));
        two.ok(ourSessionId).l();
        two.end();
    }

    /** What an answer holds beyond its head. */
    private interface Body {
        void read(Wire.Reply reply) throws Exception;
    }

    /** The standard answer with the body read to its end, or the refusal of a recording still to come. */
    private static void answeredOrRefused(Wire request, Body body) throws Exception {
        Wire.Reply reply = send(request);
        String refusal = reply.okOrError(ourSessionId);
        if (refusal == null) {
            body.read(reply);
        } else {
            assertTrue(refusal.endsWith(NOT_AVAILABLE), refusal);
        }
        reply.end();
    }

    @Test
    void probeAndEventTableListsAreClosedOrRefused() throws Exception {
        answeredOrRefused(Wire.request(Protocol.PACKET_GET_PROBES), probes -> {
            for (String name = probes.string(); name != null; name = probes.string()) {
                assertTrue(probes.i() >= 0);
            }
        });
        answeredOrRefused(Wire.request(Protocol.PACKET_UPDATE_EVENT_TABLE_INFO).i(32), tables -> {
            for (int id = tables.i(); id != -1; id = tables.i()) {
                assertTrue(id >= 32 && id <= 127);
                tables.string();
            }
        });
        answeredOrRefused(Wire.request(Protocol.PACKET_GET_TOP_EVENT_TABLE_NAMES), Wire.Reply::string);
    }
}
