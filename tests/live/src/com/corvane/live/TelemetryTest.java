package com.corvane.live;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.runtime.SharedConstants;
import com.corvane.snapshot.Rows.TelemetryRow;
import com.corvane.snapshot.Table;
import com.corvane.snapshot.Tables;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Telemetry on a real agent: the ring of samples at the period and limit asked for, and deadlocks. */
class TelemetryTest {
    private static final int MASK = 1 << Tables.TELE | 1 << Tables.PROPERTIES;

    @TempDir
    Path dir;

    private static Tables tables(AgentClient client) throws Exception {
        Tables tables = new Tables();
        client.updateTables(MASK, new int[32], tables);
        return tables;
    }

    /** One point an hour of 100 ms periods gives a ring of ten samples. */
    @Test
    void theRingHoldsTheLimitOfSamplesInOrder() throws Exception {
        try (LiveJvm jvm = LiveJvm.start(dir, "telemetry_point_limit=1,telemetryperiod=100")) {
            AgentClient client = new AgentClient(jvm.port());
            assertEquals(10, client.info().telemetryLimit());
            List<Table.Entry<TelemetryRow>> rows = tables(client).telemetry.liveEntries();
            for (int i = 0; i < 200 && (rows.isEmpty() || rows.get(0).index() == 0); i++) {
                Thread.sleep(50);
                rows = tables(client).telemetry.liveEntries();
            }
            assertEquals(10, rows.size(), "the oldest samples fell off");
            for (int i = 1; i < rows.size(); i++) {
                assertEquals(rows.get(i - 1).index() + 1, rows.get(i).index());
                assertTrue(rows.get(i).row().values()[SharedConstants.TELEMETRY_UPTIME_TENTHS]
                        >= rows.get(i - 1).row().values()[SharedConstants.TELEMETRY_UPTIME_TENTHS]);
                assertTrue(rows.get(i).row().threadStates() != null, "stack telemetry is on by default");
            }
        }
    }

    @Test
    void deadlocksAreFoundAndToldInTheStatus() throws Exception {
        try (LiveJvm jvm = LiveJvm.start(dir, "telemetryperiod=100")) {
            AgentClient client = new AgentClient(jvm.port());
            assertEquals(0, client.status() & SharedConstants.DEADLOCK_DETECTED);
            jvm.send("deadlock");
            jvm.awaitLine("deadlocked");
            for (int i = 0; i < 200 && (client.status() & SharedConstants.DEADLOCK_DETECTED) == 0; i++) {
                Thread.sleep(50);
            }
            assertTrue((client.status() & SharedConstants.DEADLOCK_DETECTED) != 0);
            Tables tables = tables(client);
            assertEquals(1, tables.properties.get(SharedConstants.TELEMETRY_DEADLOCK_PROPERTY).value());
            String notice = jvm.awaitLine("[Corvane Java Profiler 2019.8-b109] Deadlock detected: ");
            assertTrue(notice.contains("\"live-deadlock-a\"") && notice.contains("\"live-deadlock-b\""), notice);
        }
    }
}
