package com.corvane.snapshot;

import java.util.List;

/**
 * The row types of the fixed tables, one record per table, columns in the
 * order in which a snapshot carries them. Columns that name a string, method
 * or frame hold the index into that table; 0 is none for strings.
 */
public final class Rows {
    private Rows() {
    }

    public record ThreadRow(int name, int group, int tfiIndex, int trn, long secondThreadId, int daemon,
            long startUptimeNs, long endUptimeNs) {
    }

    public record MethodRow(int name, int parameters, int className, int returnType, int sourceFile, int flags) {
    }

    public record ThreadFrameRow(int tfiIndex, int frame) {
    }

    public record MonitorRow(int blockedTrn, int frame, int ownerTrn, int monitorClass, long timeNs, long count) {
    }

    public record CpuRow(long timeNs, long invocations) {
    }

    public record InstanceCountRow(int className, int count, long size) {
    }

    /** parent 0 is the root; first child and next sibling -1 mean none. */
    public record FrameRow(int parent, int codePoint, int firstChild, int nextSibling) {
    }

    public record SnapshotRow(int fileName, long time) {
    }

    public record AllocInfoRow(long objectCount, long size, long summedAgeMs) {
    }

    public record GenerationRow(int description, long uptimeMs) {
    }

    public record PropertyRow(int key, int value) {
    }

    public record ThreadState(int trn, int frame, int state, long cpuTimeNs) {
    }

    /**
     * One telemetry sample: the 12 fixed values, the custom counters as
     * (key, value) pairs, and the thread states, null when none were sampled.
     */
    public record TelemetryRow(int[] values, int[] customPairs, List<ThreadState> threadStates) {
    }

    public record ExceptionRow(int trn, int throwFrame, int catchFrame, int exceptionClass, long count) {
    }

    public record EventRow(int tableId, int eventId, int[] values) {
    }

    public record CodePointRow(int method, int line) {
    }

    public record AllocPointRow(int codePoint, int className) {
    }
}
