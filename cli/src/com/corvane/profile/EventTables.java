package com.corvane.profile;

import com.corvane.snapshot.EventTableDescription;
import com.corvane.snapshot.Rows.EventRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * The event tables of a snapshot as users read them: each table with its
 * live rows; a row as its column values, with the thread's name, the place
 * of the frame, strings resolved and the duration where the table has an end
 * time; a master row followed by the rows of its dependent tables.
 */
public final class EventTables {
    private final Snapshot mySnapshot;
    private final Map<Integer, String> myThreadNames;
    private final Map<Integer, List<EventRow>> myRowsByTable = new LinkedHashMap<>();

    public EventTables(Snapshot snapshot) {
        mySnapshot = snapshot;
        myThreadNames = Places.threadNames(snapshot);
        for (EventTableDescription table : snapshot.eventTables().values()) {
            myRowsByTable.put(table.id(), new ArrayList<>());
        }
        for (Table.Entry<EventRow> entry : snapshot.tables().events.liveEntries()) {
            List<EventRow> rows = myRowsByTable.get(entry.row().tableId());
            if (rows != null) {
                rows.add(entry.row());
            }
        }
        for (List<EventRow> rows : myRowsByTable.values()) {
            rows.sort(Comparator.comparingInt(EventRow::eventId));
        }
    }

    /** Each table: name, id, master (its name, or absent), rows, columns. */
    public List<Map<String, Object>> list() {
        List<Map<String, Object>> tables = new ArrayList<>();
        for (EventTableDescription table : mySnapshot.eventTables().values()) {
            Map<String, Object> t = new LinkedHashMap<>();
            t.put("name", table.name());
            t.put("id", table.id());
            EventTableDescription master = master(table);
            if (master != null) {
                t.put("master", master.name());
            }
            t.put("rows", myRowsByTable.get(table.id()).size());
            List<String> columns = new ArrayList<>();
            table.columns().forEach(c -> columns.add(c.name()));
            t.put("columns", columns);
            tables.add(t);
        }
        return tables;
    }

    public EventTableDescription table(String name) {
        for (EventTableDescription table : mySnapshot.eventTables().values()) {
            if (table.name().equals(name)) {
                return table;
            }
        }
        return null;
    }

    /** The table's rows in the order they were made, each followed by its dependent rows under "dependent". */
    public List<Map<String, Object>> rows(EventTableDescription table) {
        List<Map<String, Object>> rows = new ArrayList<>();
        for (EventRow row : myRowsByTable.get(table.id())) {
            rows.add(withDependents(table, row));
        }
        return rows;
    }

    /** The `count` rows of longest duration, longest first; none for a table without an end time. */
    public List<Map<String, Object>> slowest(EventTableDescription table, int count) {
        if (table.column("uptime_ns.end") == null) {
            return List.of();
        }
        List<Map<String, Object>> rows = new ArrayList<>();
        for (EventRow row : myRowsByTable.get(table.id())) {
            rows.add(values(table, row));
        }
        rows.sort(Comparator.comparingLong((Map<String, Object> r) -> (Long) r.getOrDefault("duration_ns", 0L)).reversed());
        return rows.subList(0, Math.min(count, rows.size()));
    }

    private Map<String, Object> withDependents(EventTableDescription table, EventRow row) {
        Map<String, Object> values = values(table, row);
        Map<String, Object> dependents = new LinkedHashMap<>();
        for (EventTableDescription dependent : mySnapshot.eventTables().values()) {
            if (master(dependent) != table) {
                continue;
            }
            EventTableDescription.Column key = foreignKey(dependent);
            List<Map<String, Object>> children = new ArrayList<>();
            for (EventRow child : myRowsByTable.get(dependent.id())) {
                if (dependent.value(child, key) == row.eventId()) {
                    children.add(withDependents(dependent, child));
                }
            }
            if (!children.isEmpty()) {
                dependents.put(dependent.name(), children);
            }
        }
        if (!dependents.isEmpty()) {
            values.put("dependent", dependents);
        }
        return values;
    }

    private Map<String, Object> values(EventTableDescription table, EventRow row) {
        Map<String, Object> values = new LinkedHashMap<>();
        values.put("eventId", row.eventId());
        for (EventTableDescription.Column column : table.columns()) {
            long value = table.value(row, column);
            Object shown;
            if (column.name().equals("thread")) {
                // 0: made by the agent on no thread of the program, such as a class unloaded.
                shown = value == 0 ? "<unknown>" : Places.threadName(myThreadNames, (int) value);
            } else if (column.name().equals("frame")) {
                shown = Places.place(mySnapshot, (int) value);
            } else if (column.isString()) {
                shown = mySnapshot.string((int) value);
            } else {
                shown = column.isLong() ? value : (Object) (int) value;
            }
            values.put(column.type() == EventTableDescription.TYPE_FOREIGN_KEY ? "master" : column.name(), shown);
        }
        EventTableDescription.Column start = table.column("uptime_ns");
        EventTableDescription.Column end = table.column("uptime_ns.end");
        if (start != null && end != null && table.value(row, end) != 0) {
            values.put("duration_ns", table.value(row, end) - table.value(row, start));
        }
        return values;
    }

    private EventTableDescription master(EventTableDescription table) {
        EventTableDescription.Column key = foreignKey(table);
        try {
            return key == null ? null : mySnapshot.eventTables().get(Integer.parseInt(key.name()));
        } catch (NumberFormatException e) {
            return null;
        }
    }

    private static EventTableDescription.Column foreignKey(EventTableDescription table) {
        for (EventTableDescription.Column column : table.columns()) {
            if (column.type() == EventTableDescription.TYPE_FOREIGN_KEY) {
                return column;
            }
        }
        return null;
    }
}
