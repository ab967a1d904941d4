package com.corvane.snapshot;

import com.corvane.snapshot.Rows.AllocInfoRow;
import com.corvane.snapshot.Rows.AllocPointRow;
import com.corvane.snapshot.Rows.CodePointRow;
import com.corvane.snapshot.Rows.CpuRow;
import com.corvane.snapshot.Rows.EventRow;
import com.corvane.snapshot.Rows.ExceptionRow;
import com.corvane.snapshot.Rows.FrameRow;
import com.corvane.snapshot.Rows.GenerationRow;
import com.corvane.snapshot.Rows.InstanceCountRow;
import com.corvane.snapshot.Rows.MethodRow;
import com.corvane.snapshot.Rows.MonitorRow;
import com.corvane.snapshot.Rows.PropertyRow;
import com.corvane.snapshot.Rows.SnapshotRow;
import com.corvane.snapshot.Rows.TelemetryRow;
import com.corvane.snapshot.Rows.ThreadFrameRow;
import com.corvane.snapshot.Rows.ThreadRow;

/** The twenty fixed tables of the profile database, by slot. */
public final class Tables {
    public static final int STRING = 0;
    public static final int THREAD = 1;
    public static final int METHOD = 2;
    public static final int THREAD_FRAME = 3;
    public static final int MONITOR = 4;
    public static final int CPU_PROFILING = 5;
    public static final int INSTANCE_COUNT = 6;
    public static final int FRAME = 7;
    public static final int TABLE_GENERATION = 8;
    public static final int SNAPSHOT = 9;
    public static final int ALLOC_INFO = 10;
    public static final int GENERATION = 11;
    public static final int PROPERTIES = 12;
    public static final int TELE = 13;
    public static final int EXCEPTION = 14;
    public static final int EVENT = 15;
    public static final int CODE_POINT = 16;
    public static final int CALL_COUNT = 17;
    public static final int ALLOC_POINT = 18;
    public static final int ALLOC_OBJECT_COUNT = 19;
    public static final int COUNT = 20;

    private static final String[] NAMES = {"string", "thread", "method", "thread_frame", "monitor",
        "cpu_profiling", "instance_count", "frame", "table_generation", "snapshot", "alloc_info", "generation",
        "properties", "tele", "exception", "event", "code_point", "call_count", "alloc_point",
        "alloc_object_count"};

    public final Table<String> strings = new Table<>(STRING, NAMES[STRING]);
    public final Table<ThreadRow> threads = new Table<>(THREAD, NAMES[THREAD]);
    public final Table<MethodRow> methods = new Table<>(METHOD, NAMES[METHOD]);
    public final Table<ThreadFrameRow> threadFrames = new Table<>(THREAD_FRAME, NAMES[THREAD_FRAME]);
    public final Table<MonitorRow> monitors = new Table<>(MONITOR, NAMES[MONITOR]);
    public final Table<CpuRow> cpuProfiling = new Table<>(CPU_PROFILING, NAMES[CPU_PROFILING]);
    public final Table<InstanceCountRow> instanceCounts = new Table<>(INSTANCE_COUNT, NAMES[INSTANCE_COUNT]);
    public final Table<FrameRow> frames = new Table<>(FRAME, NAMES[FRAME]);
    /** Index: a table slot; stamp: the generation at which that table was last cleared. */
    public final Table<Void> tableGenerations = new Table<>(TABLE_GENERATION, NAMES[TABLE_GENERATION]);
    public final Table<SnapshotRow> snapshots = new Table<>(SNAPSHOT, NAMES[SNAPSHOT]);
    public final Table<AllocInfoRow> allocInfo = new Table<>(ALLOC_INFO, NAMES[ALLOC_INFO]);
    public final Table<GenerationRow> generations = new Table<>(GENERATION, NAMES[GENERATION]);
    public final Table<PropertyRow> properties = new Table<>(PROPERTIES, NAMES[PROPERTIES]);
    /** Indexed by rolling position, from 0. */
    public final Table<TelemetryRow> telemetry = new Table<>(TELE, NAMES[TELE]);
    public final Table<ExceptionRow> exceptions = new Table<>(EXCEPTION, NAMES[EXCEPTION]);
    public final Table<EventRow> events = new Table<>(EVENT, NAMES[EVENT]);
    public final Table<CodePointRow> codePoints = new Table<>(CODE_POINT, NAMES[CODE_POINT]);
    /** Calls counted: current minus base. */
    public final Table<Long> callCounts = new Table<>(CALL_COUNT, NAMES[CALL_COUNT]);
    public final Table<AllocPointRow> allocPoints = new Table<>(ALLOC_POINT, NAMES[ALLOC_POINT]);
    /** Objects counted: current minus base. */
    public final Table<Long> allocObjectCounts = new Table<>(ALLOC_OBJECT_COUNT, NAMES[ALLOC_OBJECT_COUNT]);

    private final Table<?>[] myBySlot = {strings, threads, methods, threadFrames, monitors, cpuProfiling,
        instanceCounts, frames, tableGenerations, snapshots, allocInfo, generations, properties, telemetry,
        exceptions, events, codePoints, callCounts, allocPoints, allocObjectCounts};

    public Table<?> bySlot(int slot) {
        return myBySlot[slot];
    }

    public static String name(int slot) {
        return NAMES[slot];
    }
}
