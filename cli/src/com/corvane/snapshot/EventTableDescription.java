package com.corvane.snapshot;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/**
 * The layout of one event table, parsed from its description text: the
 * table name, then a column count, then a name and a type line per column.
 * Types 1 and 5 take two values (a long, low half first); the others one.
 */
public final class EventTableDescription {
    public static final int TYPE_INT = 0;
    public static final int TYPE_LONG = 1;
    public static final int TYPE_STRING = 2;
    public static final int TYPE_FOREIGN_KEY = 3;
    public static final int TYPE_STRING_2 = 4;
    public static final int TYPE_LONG_2 = 5;

    public record Column(String name, int type, int offset) {
        public boolean isLong() {
            return type == TYPE_LONG || type == TYPE_LONG_2;
        }

        public boolean isString() {
            return type == TYPE_STRING || type == TYPE_STRING_2;
        }
    }

    private final int myId;
    private final String myText;
    private final String myName;
    private final List<Column> myColumns;
    private final int myValueCount;

    private EventTableDescription(int id, String text, String name, List<Column> columns, int valueCount) {
        myId = id;
        myText = text;
        myName = name;
        myColumns = columns;
        myValueCount = valueCount;
    }

    /** Parses a description; the result names the fault, or null when the text is valid. */
    static Object parse(int id, String text) {
        String[] lines = text.split("\n", -1);
        if (text.isEmpty()) {
            return "the description is empty";
        }
        if (lines.length < 2) {
            return "the description has no column count";
        }
        int count;
        try {
            count = Integer.parseInt(lines[1].trim());
        } catch (NumberFormatException e) {
            return "the column count \"" + lines[1] + "\" is not a number";
        }
        if (count < 1) {
            return "the column count " + count + " is below 1";
        }
        List<Column> columns = new ArrayList<>();
        int offset = 0;
        for (int i = 0; i < count; i++) {
            int nameLine = 2 + 2 * i;
            if (nameLine >= lines.length || (lines[nameLine].isEmpty() && nameLine == lines.length - 1)) {
                return "column " + i + " has no name";
            }
            if (nameLine + 1 >= lines.length || (lines[nameLine + 1].isEmpty() && nameLine + 1 == lines.length - 1)) {
                return "column " + i + " has no type";
            }
            int type;
            try {
                type = Integer.parseInt(lines[nameLine + 1].trim());
            } catch (NumberFormatException e) {
                type = TYPE_INT; // the agent reads a non-numeric type as 0
            }
            if (type < 0 || type > 5) {
                return "column " + i + " has the unknown type " + type;
            }
            columns.add(new Column(lines[nameLine], type, offset));
            offset += (type == TYPE_LONG || type == TYPE_LONG_2) ? 2 : 1;
        }
        return new EventTableDescription(id, text, lines[0], Collections.unmodifiableList(columns), offset);
    }

    public int id() {
        return myId;
    }

    /** The description exactly as the file carries it. */
    public String text() {
        return myText;
    }

    public String name() {
        return myName;
    }

    public List<Column> columns() {
        return myColumns;
    }

    /** Values a row of this table needs. */
    public int valueCount() {
        return myValueCount;
    }

    public Column column(String name) {
        for (Column column : myColumns) {
            if (column.name().equals(name)) {
                return column;
            }
        }
        return null;
    }

    /** A column's value in a row: a long from two values, else the int widened; 0 if the row is short. */
    public long value(Rows.EventRow row, Column column) {
        int[] values = row.values();
        if (column.isLong()) {
            if (column.offset() + 1 >= values.length) {
                return 0;
            }
            return (values[column.offset()] & 0xFFFFFFFFL) | ((long) values[column.offset() + 1] << 32);
        }
        return column.offset() < values.length ? values[column.offset()] : 0;
    }
}
