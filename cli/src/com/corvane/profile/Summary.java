package com.corvane.profile;

import com.corvane.snapshot.EventTableDescription;
import com.corvane.snapshot.Rows.MethodRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import com.corvane.snapshot.Tables;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * What a snapshot says about itself: session, JVM, recording modes and
 * times. Sections of named values, in display order; the text and JSON
 * reports both print exactly these. Keys ending in "Ns" are nanoseconds,
 * in "EpochMs" milliseconds since the epoch. Absent facts are left out.
 */
public final class Summary {
    private static final long CPU_MODE_MASK = 4108;
    private static final long SAMPLING_KIND_MASK = 0x60000;
    private static final long ALLOCATION_MODE_MASK = 24578;
    private static final int METHOD_WALL_TIME = 0x4;
    private static final int METHOD_ALL_WALL_TIME = 0x100;

    private Summary() {
    }

    public static Map<String, Map<String, Object>> of(Snapshot snapshot, Profile profile) {
        Map<String, Map<String, Object>> sections = new LinkedHashMap<>();
        sections.put("snapshot", snapshotSection(snapshot));
        sections.put("session", sessionSection(snapshot));
        sections.put("jvm", jvmSection(snapshot));
        sections.put("modes", modesSection(snapshot, profile));
        sections.put("times", timesSection(snapshot, profile));
        sections.put("counts", countsSection(snapshot));
        return sections;
    }

    private static Map<String, Object> snapshotSection(Snapshot snapshot) {
        Map<String, Object> s = new LinkedHashMap<>();
        s.put("file", snapshot.file().toString());
        s.put("sizeBytes", snapshot.fileSize());
        s.put("kind", snapshot.isMemorySnapshot() ? "memory" : "performance");
        s.put("createdEpochMs", snapshot.creationTimeMs());
        int flags = snapshot.flags();
        s.put("capturedAtExit", (flags & Snapshot.FLAG_ON_EXIT) != 0);
        if ((flags & (Snapshot.FLAG_ATTACHED | Snapshot.FLAG_STARTED_WITH_JVM)) != 0) {
            s.put("agentLoaded", (flags & Snapshot.FLAG_ATTACHED) != 0 ? "attached" : "at JVM start");
        }
        s.put("flags", flags);
        putIfPresent(s, "snapshotVersion", snapshot.header("snapshot_version"));
        putIfPresent(s, "createdBy", snapshot.header("created_by_version"));
        return s;
    }

    private static Map<String, Object> sessionSection(Snapshot snapshot) {
        Map<String, Object> s = new LinkedHashMap<>();
        putIfPresent(s, "name", snapshot.header("session_name"));
        putIfPresent(s, "id", snapshot.header("session_id"));
        putIfPresent(s, "agentVersion", snapshot.header("agent_version"));
        putIfPresent(s, "platform", snapshot.header("platform"));
        return s;
    }

    private static Map<String, Object> jvmSection(Snapshot snapshot) {
        Map<String, Object> s = new LinkedHashMap<>();
        String commandLine = snapshot.stringProperty("kzt.command.line");
        if (commandLine != null) {
            s.put("commandLine", commandLine.replace('\n', ' ').trim());
        }
        putIfPresent(s, "inputArguments", snapshot.stringProperty("kzt.input.arguments"));
        String start = snapshot.stringProperty("kzt.vm.starttime");
        if (start != null) {
            try {
                s.put("startEpochMs", Long.parseLong(start.trim()));
            } catch (NumberFormatException e) {
                s.put("start", start);
            }
        }
        putIfPresent(s, "uptimeNs", snapshot.longProperty("kzt.uptime.ns"));
        putIfPresent(s, "pointerSizeBytes", parseLong(snapshot.header("sizeof_pointer")));
        Integer memory = snapshot.property("qv.system.physical.memory.mb");
        if (memory != null && memory >= 0) {
            s.put("physicalMemoryMb", memory);
        }
        return s;
    }

    private static Map<String, Object> modesSection(Snapshot snapshot, Profile profile) {
        Map<String, Object> s = new LinkedHashMap<>();
        Long cpu = snapshot.longProperty("kzt.last.cpu.profiling.mode");
        s.put("cpu", cpuMode(cpu == null ? 0 : cpu));
        s.put("clock", clock(snapshot));
        Long allocation = snapshot.longProperty("kzt.last.allocation.recording.mode");
        s.put("allocations", allocationMode(allocation == null ? 0 : allocation));
        s.put("monitors", snapshot.longProperty("kzt.monitor.profiling.duration.ns") != null
                || snapshot.tables().monitors.liveCount() > 0);
        s.put("exceptions", snapshot.tables().exceptions.liveCount() > 0);
        s.put("telemetry", snapshot.tables().telemetry.liveCount() > 0);
        s.put("invocationCounts", hasInvocations(profile.allThreads()));
        List<String> eventTables = new ArrayList<>();
        for (EventTableDescription table : snapshot.eventTables().values()) {
            eventTables.add(table.name());
        }
        s.put("eventTables", eventTables);
        return s;
    }

    private static Map<String, Object> timesSection(Snapshot snapshot, Profile profile) {
        Map<String, Object> s = new LinkedHashMap<>();
        Long cpuStart = snapshot.longProperty("kzt.cpu.profiling.start.ns");
        Long cpuEnd = snapshot.longProperty("kzt.cpu.profiling.end.ns");
        putIfPresent(s, "cpuProfilingStartNs", cpuStart);
        putIfPresent(s, "cpuProfilingEndNs", cpuEnd);
        if (cpuStart != null && cpuEnd != null) {
            s.put("cpuProfilingDurationNs", cpuEnd - cpuStart);
        }
        Long allocStart = snapshot.longProperty("kzt.allocation.recording.start.ns");
        Long allocEnd = snapshot.longProperty("kzt.allocation.recording.end.ns");
        putIfPresent(s, "allocationRecordingStartNs", allocStart);
        putIfPresent(s, "allocationRecordingEndNs", allocEnd);
        if (allocStart != null && allocEnd != null) {
            s.put("allocationRecordingDurationNs", allocEnd - allocStart);
        }
        putIfPresent(s, "monitorProfilingDurationNs", snapshot.longProperty("kzt.monitor.profiling.duration.ns"));
        s.put("recordedTimeNs", profile.totalNs());
        return s;
    }

    private static Map<String, Object> countsSection(Snapshot snapshot) {
        Map<String, Object> s = new LinkedHashMap<>();
        Tables t = snapshot.tables();
        s.put("threads", t.threads.liveCount());
        s.put("methods", t.methods.liveCount());
        s.put("frames", t.frames.liveCount());
        s.put("strings", t.strings.liveCount());
        s.put("telemetrySamples", t.telemetry.liveCount());
        s.put("eventRows", t.events.liveCount());
        s.put("monitorRows", t.monitors.liveCount());
        s.put("exceptionRows", t.exceptions.liveCount());
        if (snapshot.memoryPart() != null) {
            s.put("heapSegments", snapshot.memoryPart().heapSegments().size());
            s.put("heapClasses", snapshot.memoryPart().hprofClasses().size());
            putIfPresent(s, "heapObjects", parseLong(snapshot.header("oid_count")));
        }
        return s;
    }

    /** Which clock the recorded times are in, from the methods' wall-time flags. */
    public static String clock(Snapshot snapshot) {
        boolean some = false;
        for (Table.Entry<MethodRow> method : snapshot.tables().methods.liveEntries()) {
            int flags = method.row().flags();
            if ((flags & METHOD_ALL_WALL_TIME) != 0) {
                return "wall time";
            }
            some |= (flags & METHOD_WALL_TIME) != 0;
        }
        return some ? "CPU time, wall time for some methods" : "CPU time";
    }

    public static String cpuMode(long mode) {
        long cpu = mode & CPU_MODE_MASK;
        if (cpu == 12) {
            return "tracing";
        }
        if (cpu == 4100) {
            return "call counting";
        }
        if (cpu == 4) {
            long kind = mode & SAMPLING_KIND_MASK;
            return kind == 0x20000 ? "sampling (asynchronous, cpu)"
                    : kind == 0x40000 ? "sampling (asynchronous, periodic)" : "sampling";
        }
        return "off";
    }

    public static String allocationMode(long mode) {
        long allocation = mode & ALLOCATION_MODE_MASK;
        if (allocation == 2) {
            return "exact stacks";
        }
        if (allocation == 8194) {
            return "sampled stacks";
        }
        if (allocation == 16386) {
            return "object counting";
        }
        return "off";
    }

    private static boolean hasInvocations(CallNode node) {
        if (node.invocations() > 0) {
            return true;
        }
        for (CallNode child : node.children()) {
            if (hasInvocations(child)) {
                return true;
            }
        }
        return false;
    }

    private static Long parseLong(String text) {
        if (text == null) {
            return null;
        }
        try {
            return Long.parseLong(text.trim());
        } catch (NumberFormatException e) {
            return null;
        }
    }

    private static void putIfPresent(Map<String, Object> section, String key, Object value) {
        if (value != null) {
            section.put(key, value);
        }
    }
}
