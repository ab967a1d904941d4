package com.corvane.testing;

import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * Builds the tables of a CPU profile as the agent fills them (strings,
 * methods, the shared frame tree, threads, thread-frame rows and their
 * times) and writes them with {@link SnapshotFileWriter}.
 */
public final class ProfileBuilder {
    public static final int STRING = 0;
    public static final int THREAD = 1;
    public static final int METHOD = 2;
    public static final int THREAD_FRAME = 3;
    public static final int CPU_PROFILING = 5;
    public static final int FRAME = 7;
    public static final int ALLOC_INFO = 10;
    public static final int PROPERTIES = 12;
    public static final int CODE_POINT = 16;
    public static final int CALL_COUNT = 17;
    public static final int ALLOC_POINT = 18;
    public static final int ALLOC_OBJECT_COUNT = 19;

    public static final long SAMPLING = 4;
    public static final long TRACING = 12;

    public final SnapshotFileWriter file = new SnapshotFileWriter();
    private final Map<String, Integer> myStrings = new HashMap<>();
    private final Map<String, Integer> myMethods = new HashMap<>();
    private final Map<String, Integer> myFrames = new HashMap<>();
    private final List<int[]> myFrameRows = new ArrayList<>(); // parent, code point
    private int myNextMethod = 1;
    private int myNextThread = 1;
    private int myNextThreadFrame = 1;
    private int myNextProperty = 1;
    private int myNextCodePoint = 1;

    public ProfileBuilder cpuMode(long mode) {
        longProperty("kzt.last.cpu.profiling.mode", mode);
        longProperty("kzt.cpu.profiling.start.ns", 1_000_000_000L);
        longProperty("kzt.cpu.profiling.end.ns", 9_000_000_000L);
        return this;
    }

    public int string(String text) {
        Integer known = myStrings.get(text);
        if (known != null) {
            return known;
        }
        int index = myStrings.size() + 1;
        myStrings.put(text, index);
        file.row(STRING, index, 1, text);
        return index;
    }

    public int method(String className, String name, String parameters) {
        String key = className + "." + name + parameters;
        Integer known = myMethods.get(key);
        if (known != null) {
            return known;
        }
        int index = myNextMethod++;
        file.row(METHOD, index, 1, string(name), string(parameters), string(className), string("void"),
                string(className.substring(className.lastIndexOf('.') + 1) + ".java"), 0);
        myMethods.put(key, index);
        return index;
    }

    public int ownLineMethod() {
        return method("own", "<<own>>", "()");
    }

    /** The child frame of a parent for a method called at a line, made once as the agent does. */
    public int frame(int parent, int method, int line) {
        int codePoint = codePoint(method, line);
        String key = parent + "/" + codePoint;
        Integer known = myFrames.get(key);
        if (known != null) {
            return known;
        }
        myFrameRows.add(new int[] {parent, codePoint});
        int index = myFrameRows.size();
        myFrames.put(key, index);
        return index;
    }

    /** Plain below line 1, packed where method and line fit, else a code_point row. */
    public int codePoint(int method, int line) {
        if (line < 1 && method != 0) {
            return method;
        }
        if (line >= 1 && method <= 0x7FFFF && line <= 2047) {
            return 0xC0000000 | (line << 19) | method;
        }
        int index = myNextCodePoint++;
        file.row(CODE_POINT, index, 1, method, line);
        return index | 0x80000000;
    }

    /** A thread row; the result is its TFI index. */
    public int thread(String name, int trn, boolean daemon) {
        int tfi = myNextThread;
        file.row(THREAD, myNextThread++, 1, string(name), string("main"), tfi, trn, 0L, daemon ? 1 : 0,
                5_000_000L, 0L);
        return tfi;
    }

    /** Time and entry count of a thread in a frame, through a thread_frame row and its cpu_profiling row. */
    public void time(int tfi, int frame, long ns, long invocations) {
        int index = myNextThreadFrame++;
        file.row(THREAD_FRAME, index, 1, tfi, frame);
        file.row(CPU_PROFILING, index, 1, ns, invocations);
    }

    /** Objects recorded by a thread in a frame (an allocated class's frame), through a thread_frame row. */
    public void allocation(int tfi, int frame, long objects, long bytes, long summedAgeMs) {
        int index = myNextThreadFrame++;
        file.row(THREAD_FRAME, index, 1, tfi, frame);
        file.row(ALLOC_INFO, index, 1, objects, bytes, summedAgeMs);
    }

    /** The pseudo method of an allocated class. */
    public int classMethod(String className) {
        return method(className, "<<init>>", "()");
    }

    /** Objects counted at an allocation point: a method, a line, a class. */
    public void counted(int index, int method, int line, String className, long objects) {
        file.row(ALLOC_POINT, index, 1, codePoint(method, line), string(className));
        file.row(ALLOC_OBJECT_COUNT, index, 1, objects);
    }

    public void calls(int method, long count) {
        file.row(CALL_COUNT, method, 1, count);
    }

    public void property(String key, int value) {
        file.row(PROPERTIES, myNextProperty++, 1, string(key), value);
    }

    public void longProperty(String key, long value) {
        property(key + ".low", (int) value);
        property(key + ".high", (int) (value >>> 32));
    }

    /** The frame rows with their child lists linked, as the shared tree keeps them. */
    private void addFrameRows() {
        int count = myFrameRows.size();
        int[] firstChild = new int[count + 1];
        int[] nextSibling = new int[count + 1];
        int[] lastChild = new int[count + 1];
        java.util.Arrays.fill(firstChild, -1);
        java.util.Arrays.fill(nextSibling, -1);
        java.util.Arrays.fill(lastChild, -1);
        for (int index = 1; index <= count; index++) {
            int parent = myFrameRows.get(index - 1)[0];
            if (parent == 0) {
                continue;
            }
            if (firstChild[parent] == -1) {
                firstChild[parent] = index;
            } else {
                nextSibling[lastChild[parent]] = index;
            }
            lastChild[parent] = index;
        }
        for (int index = 1; index <= count; index++) {
            int[] row = myFrameRows.get(index - 1);
            file.row(FRAME, index, 1, row[0], row[1], firstChild[index], nextSibling[index]);
        }
    }

    public byte[] toBytes() {
        List<SnapshotFileWriter.Row> saved = new ArrayList<>(file.tables.get(FRAME));
        addFrameRows();
        byte[] bytes = file.toBytes();
        file.tables.get(FRAME).clear();
        file.tables.get(FRAME).addAll(saved);
        return bytes;
    }

    public Path write(Path path) {
        try {
            java.nio.file.Files.write(path, toBytes());
            return path;
        } catch (java.io.IOException e) {
            throw new java.io.UncheckedIOException(e);
        }
    }
}
