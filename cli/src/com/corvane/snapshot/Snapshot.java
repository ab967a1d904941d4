package com.corvane.snapshot;

import com.corvane.snapshot.Rows.CodePointRow;
import com.corvane.snapshot.Rows.MethodRow;
import com.corvane.snapshot.Rows.PropertyRow;
import java.nio.file.Path;
import java.util.Collections;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.SortedMap;

/**
 * Everything one snapshot file holds: the header properties, the event table
 * layouts, the twenty tables and, in a memory snapshot, where the heap dump
 * lies and the class references that follow it. Built by {@link SnapshotReader}.
 */
public final class Snapshot {
    /** Flag bits of the "snapshot_flags" property. */
    public static final int FLAG_MEMORY = 0x1;
    public static final int FLAG_ON_EXIT = 0x20;
    public static final int FLAG_ATTACHED = 0x4000;
    public static final int FLAG_STARTED_WITH_JVM = 0x8000;

    /** Method flag: the frame that holds the line of the top frame, not a real method. */
    public static final String OWN_LINE_METHOD_NAME = "<<own>>";

    public record HprofClass(int serial, int classId, int nameId) {
    }

    /** The body of one heap dump segment record: its file offset and length. */
    public record HeapSegment(long offset, long length) {
    }

    public record ConstantPoolReference(int constantPoolIndex, int objectId) {
    }

    public record MemoryPart(Map<Integer, String> hprofStrings, List<HprofClass> hprofClasses,
            List<HeapSegment> heapSegments, Map<Integer, int[]> classInterfaces,
            Map<Integer, List<ConstantPoolReference>> classConstantPoolReferences) {
    }

    private final Path myFile;
    private final long myFileSize;
    private final int myRevision;
    private final long myCreationTimeMs;
    private final Map<String, String> myHeader;
    private final SortedMap<Integer, EventTableDescription> myEventTables;
    private final Tables myTables;
    private final MemoryPart myMemoryPart;
    private Map<String, Integer> myPropertyValues;

    Snapshot(Path file, long fileSize, int revision, long creationTimeMs, Map<String, String> header,
            SortedMap<Integer, EventTableDescription> eventTables, Tables tables, MemoryPart memoryPart) {
        myFile = file;
        myFileSize = fileSize;
        myRevision = revision;
        myCreationTimeMs = creationTimeMs;
        myHeader = Collections.unmodifiableMap(header);
        myEventTables = Collections.unmodifiableSortedMap(eventTables);
        myTables = tables;
        myMemoryPart = memoryPart;
    }

    public Path file() {
        return myFile;
    }

    public long fileSize() {
        return myFileSize;
    }

    public int revision() {
        return myRevision;
    }

    /** Creation time in milliseconds since the epoch, from the file's fixed header. */
    public long creationTimeMs() {
        return myCreationTimeMs;
    }

    /** The header properties, in file order. */
    public Map<String, String> header() {
        return myHeader;
    }

    public String header(String key) {
        return myHeader.get(key);
    }

    /** Event table layouts by id (32 to 127). */
    public SortedMap<Integer, EventTableDescription> eventTables() {
        return myEventTables;
    }

    public Tables tables() {
        return myTables;
    }

    /** The heap part, or null for a performance snapshot. */
    public MemoryPart memoryPart() {
        return myMemoryPart;
    }

    public int flags() {
        return parseIntOr(myHeader.get("snapshot_flags"), 0);
    }

    public boolean isMemorySnapshot() {
        return (flags() & FLAG_MEMORY) != 0;
    }

    /** The text of a string index, or null for 0 or an absent string. */
    public String string(int index) {
        return index == 0 ? null : myTables.strings.get(index);
    }

    /** A database property's raw value, or null when the property is absent. */
    public Integer property(String key) {
        if (myPropertyValues == null) {
            Map<String, Integer> values = new HashMap<>();
            for (Table.Entry<PropertyRow> entry : myTables.properties.liveEntries()) {
                String name = string(entry.row().key());
                if (name != null) {
                    values.put(name, entry.row().value());
                }
            }
            myPropertyValues = values;
        }
        return myPropertyValues.get(key);
    }

    /** A long property, stored as the two halves key.low and key.high; null when absent. */
    public Long longProperty(String key) {
        Integer low = property(key + ".low");
        Integer high = property(key + ".high");
        if (low == null && high == null) {
            return null;
        }
        return ((long) (high == null ? 0 : high) << 32) | ((low == null ? 0 : low) & 0xFFFFFFFFL);
    }

    /** A property whose value is a string index; null when absent. */
    public String stringProperty(String key) {
        Integer value = property(key);
        return value == null ? null : string(value);
    }

    /** The method index of a code point: plain, packed (method and line in one int) or a code_point row. */
    public int methodOfCodePoint(int codePoint) {
        if (codePoint >= 0) {
            return codePoint;
        }
        if ((codePoint & 0x40000000) != 0) {
            return codePoint & 0x7FFFF;
        }
        CodePointRow row = myTables.codePoints.get(codePoint & 0x7FFFFFFF);
        return row == null ? 0 : row.method();
    }

    /** The line of a code point, 0 for none. */
    public int lineOfCodePoint(int codePoint) {
        if (codePoint >= 0) {
            return 0;
        }
        if ((codePoint & 0x40000000) != 0) {
            return (codePoint >>> 19) & 0x7FF;
        }
        CodePointRow row = myTables.codePoints.get(codePoint & 0x7FFFFFFF);
        return row == null ? 0 : row.line();
    }

    /** "class.name(parameters)", or what is known of it. */
    public String methodName(int methodIndex) {
        MethodRow method = myTables.methods.get(methodIndex);
        if (method == null) {
            return "<method #" + methodIndex + ">";
        }
        String className = string(method.className());
        String name = string(method.name());
        String parameters = string(method.parameters());
        StringBuilder text = new StringBuilder();
        if (className != null && !className.isEmpty()) {
            text.append(className).append('.');
        }
        text.append(name == null ? "<method #" + methodIndex + ">" : name);
        if (parameters != null) {
            text.append(parameters);
        }
        return text.toString();
    }

    /** Whether the method is the pseudo method that carries the line of the top frame. */
    public boolean isOwnLineMethod(int methodIndex) {
        MethodRow method = myTables.methods.get(methodIndex);
        return method != null && OWN_LINE_METHOD_NAME.equals(string(method.name()));
    }

    private static int parseIntOr(String text, int fallback) {
        if (text == null) {
            return fallback;
        }
        try {
            return Integer.parseInt(text.trim());
        } catch (NumberFormatException e) {
            return fallback;
        }
    }
}
