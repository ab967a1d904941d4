package com.corvane.testing;

import java.nio.file.Path;

/**
 * A CPU and allocation profile of a known shape, put into the agent's own
 * tables (methods, the shared frame tree, threads, thread-frame rows and
 * their times) by a {@link SnapshotFixture} and written as a snapshot file.
 * Every index handed out is the agent's own.
 */
public final class ProfileBuilder {
    public static final long SAMPLING = 4;
    public static final long TRACING = 12;

    public final SnapshotFixture fixture = new SnapshotFixture();
    private long myCpuMode;
    private long myAllocationMode;

    public ProfileBuilder cpuMode(long mode) {
        myCpuMode = mode;
        fixture.command("mode", myCpuMode, myAllocationMode);
        return this;
    }

    public ProfileBuilder allocationMode(long mode) {
        myAllocationMode = mode;
        fixture.command("mode", myCpuMode, myAllocationMode);
        return this;
    }

    public int method(String className, String name, String parameters) {
        return fixture.index("method", className, name, parameters);
    }

    public int ownLineMethod() {
        return fixture.index("own");
    }

    /** The pseudo method of an allocated class. */
    public int classMethod(String className) {
        return method(className, "<<init>>", "()");
    }

    /** The child frame of a parent for a method called at a line, made once as the agent does. */
    public int frame(int parent, int method, int line) {
        return fixture.index("frame", parent, method, line);
    }

    /** A thread row; the result is its thread-frame index. */
    public int thread(String name, int trn, boolean daemon) {
        return fixture.index("thread", name, trn, daemon ? 1 : 0);
    }

    /** Time and entry count of a thread in a frame, through a thread_frame row and its cpu_profiling row. */
    public void time(int tfi, int frame, long ns, long invocations) {
        fixture.index("time", tfi, frame, ns, invocations);
    }

    /** A frame, as {@link #frame}, with the thread's time and entry count in it, as {@link #time}; the frame. */
    public int call(int tfi, int parent, int method, int line, long ns, long invocations) {
        int frame = frame(parent, method, line);
        time(tfi, frame, ns, invocations);
        return frame;
    }

    /** Objects recorded by a thread in a frame (an allocated class's frame), through a thread_frame row. */
    public void allocation(int tfi, int frame, long objects, long bytes, long summedAgeMs) {
        fixture.index("alloc", tfi, frame, objects, bytes, summedAgeMs);
    }

    /** Objects counted at an allocation point: a method, a line, a class. */
    public void counted(int method, int line, String className, long objects) {
        fixture.index("counted", method, line, className, objects);
    }

    /** A frame row exactly as given, whether the tree holds together or not. */
    public void frameRow(int index, int parent, int codePoint, int firstChild, int nextSibling) {
        fixture.index("frame_row", index, parent, codePoint, firstChild, nextSibling);
    }

    public void calls(int method, long count) {
        fixture.command("calls", method, count);
    }

    public byte[] toBytes() {
        return fixture.toBytes();
    }

    public Path write(Path path) {
        return fixture.write(path);
    }
}
