package com.corvane.commands;

import com.corvane.live.AgentClient;
import com.corvane.runtime.SharedConstants;
import com.corvane.snapshot.Rows.PropertyRow;
import com.corvane.snapshot.Rows.TelemetryRow;
import com.corvane.snapshot.Table;
import com.corvane.snapshot.Tables;
import java.io.IOException;
import java.io.PrintStream;
import java.util.List;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

@Command(name = "telemetry", sortOptions = false, mixinStandardHelpOptions = true,
        description = {"Shows the telemetry of a running JVM: memory, CPU, garbage collection, threads, classes.", "",
            "Without --watch the latest sample; with it one line for each new sample until Ctrl-C.", ""},
        footer = {"", "Examples:", "  corvane telemetry 12345", "  corvane telemetry MyApp --watch"})
public final class TelemetryCommand implements Callable<Integer> {
    private static final int MASK = (1 << Tables.TELE) | (1 << Tables.PROPERTIES);
    private static final long POLL_MS = 250;

    @Mixin
    LiveTarget myTarget = new LiveTarget();

    @Option(names = "--watch", description = "Keep watching: a line for each sample the agent takes.")
    boolean myWatch;

    @Option(names = "--samples", paramLabel = "<n>", description = "With --watch: stop after this many lines.")
    int mySamples;

    private final Io myIo;
    private final Tables myTables = new Tables();
    private final int[] myStamps = new int[32];

    public TelemetryCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        return myTarget.talk(client -> watch(client, myIo.out()));
    }

    private int watch(AgentClient client, PrintStream out) throws IOException {
        fetch(client);
        List<Table.Entry<TelemetryRow>> rows = myTables.telemetry.liveEntries();
        if (!myWatch) {
            if (rows.isEmpty()) {
                throw new UserException(myTarget.describe() + " has taken no telemetry sample yet");
            }
            printSample(out, rows.get(rows.size() - 1).row());
            return 0;
        }
        out.printf("%9s %9s %9s %9s %6s %5s %6s %8s %8s %7s%n", "UPTIME", "HEAP MB", "COMMIT MB", "NONHEAP",
                "CPU %", "GC", "GC ms", "THREADS", "CLASSES", "RSS MB");
        int printed = 0;
        int lastIndex = rows.isEmpty() ? -1 : rows.get(rows.size() - 1).index() - 1;
        for (;;) {
            for (Table.Entry<TelemetryRow> entry : myTables.telemetry.liveEntries()) {
                if (entry.index() <= lastIndex) {
                    continue;
                }
                lastIndex = entry.index();
                printLine(out, entry.row());
                if (mySamples > 0 && ++printed >= mySamples) {
                    return 0;
                }
            }
            sleep();
            fetch(client);
        }
    }

    private static void sleep() throws IOException {
        try {
            Thread.sleep(POLL_MS);
        } catch (InterruptedException e) {
            throw new java.io.InterruptedIOException("interrupted");
        }
    }

    /** The rows newer than what came before. */
    private void fetch(AgentClient client) throws IOException {
        client.updateTables(MASK, myStamps, myTables);
        for (int slot : new int[] {Tables.TELE, Tables.PROPERTIES}) {
            for (Table.Entry<?> entry : myTables.bySlot(slot).entries()) {
                myStamps[slot] = Math.max(myStamps[slot], Math.abs(entry.stamp()));
            }
        }
    }

    private int property(int index) {
        PropertyRow row = myTables.properties.get(index);
        return row == null ? 0 : row.value();
    }

    private static String mb(long kb) {
        return kb < 0 ? "?" : String.format("%.1f MB", kb / 1024.0);
    }

    private void printSample(PrintStream out, TelemetryRow row) {
        int[] v = row.values();
        line(out, "Uptime", clock(v[SharedConstants.TELEMETRY_UPTIME_TENTHS] * 100L));
        line(out, "Heap", mb(v[SharedConstants.TELEMETRY_HEAP_USED_KB]) + " used of "
                + mb(v[SharedConstants.TELEMETRY_HEAP_COMMITTED_KB]) + " committed, at most "
                + mb(property(SharedConstants.TELEMETRY_HEAP_MAX_KB_PROPERTY)));
        line(out, "Non-heap", mb(v[SharedConstants.TELEMETRY_NON_HEAP_USED_KB]) + " used of "
                + mb(v[SharedConstants.TELEMETRY_NON_HEAP_COMMITTED_KB]) + " committed");
        line(out, "CPU", String.format("%.1f %% of all processors", v[SharedConstants.TELEMETRY_CPU_PERMILLE] / 10.0));
        line(out, "GC", v[SharedConstants.TELEMETRY_GC_COUNT] + " collections, "
                + v[SharedConstants.TELEMETRY_GC_TIME_MS] + " ms in the last period");
        line(out, "Threads", v[SharedConstants.TELEMETRY_LIVE_THREADS] + " live, "
                + v[SharedConstants.TELEMETRY_DAEMON_THREADS] + " daemon, "
                + property(SharedConstants.TELEMETRY_PEAK_THREADS_PROPERTY) + " at most, "
                + property(SharedConstants.TELEMETRY_STARTED_THREADS_PROPERTY) + " started");
        line(out, "Classes", v[SharedConstants.TELEMETRY_LOADED_CLASSES] + " loaded, "
                + property(SharedConstants.TELEMETRY_UNLOADED_CLASSES_PROPERTY) + " unloaded");
        int rss = v[SharedConstants.TELEMETRY_PROCESS_MEMORY_MB];
        line(out, "Process memory", rss < 0 ? "?" : rss + " MB resident");
        line(out, "Deadlocks", property(SharedConstants.TELEMETRY_DEADLOCK_PROPERTY) != 0 ? "detected" : "none found");
        out.flush();
    }

    /** An uptime as h:mm:ss. */
    private static String clock(long ms) {
        long seconds = ms / 1000;
        return String.format("%d:%02d:%02d", seconds / 3600, seconds / 60 % 60, seconds % 60);
    }

    private static void line(PrintStream out, String name, String value) {
        out.printf("%-16s %s%n", name, value);
    }

    private static void printLine(PrintStream out, TelemetryRow row) {
        int[] v = row.values();
        out.printf("%9s %9.1f %9.1f %9.1f %6.1f %5d %6d %8d %8d %7s%n",
                clock(v[SharedConstants.TELEMETRY_UPTIME_TENTHS] * 100L),
                v[SharedConstants.TELEMETRY_HEAP_USED_KB] / 1024.0,
                v[SharedConstants.TELEMETRY_HEAP_COMMITTED_KB] / 1024.0,
                v[SharedConstants.TELEMETRY_NON_HEAP_USED_KB] / 1024.0,
                v[SharedConstants.TELEMETRY_CPU_PERMILLE] / 10.0, v[SharedConstants.TELEMETRY_GC_COUNT],
                v[SharedConstants.TELEMETRY_GC_TIME_MS], v[SharedConstants.TELEMETRY_LIVE_THREADS],
                v[SharedConstants.TELEMETRY_LOADED_CLASSES],
                v[SharedConstants.TELEMETRY_PROCESS_MEMORY_MB] < 0 ? "?"
                        : String.valueOf(v[SharedConstants.TELEMETRY_PROCESS_MEMORY_MB]));
        out.flush();
    }
}
