package com.corvane.commands;

import com.corvane.profile.EventTables;
import com.corvane.report.EventRowText;
import com.corvane.report.Json;
import com.corvane.snapshot.EventTableDescription;
import java.io.PrintStream;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

@Command(name = "events", sortOptions = false, mixinStandardHelpOptions = true,
        description = {"Lists the event tables of a snapshot with their row counts, or prints the rows of one.", "",
            "Probes record into event tables; a row holds its columns, the thread, the place it was made and, where"
                + " the table has an end time, its duration. A row of a master table is followed by the rows of the"
                + " tables that depend on it.", ""},
        footer = {"", "Examples:", "  corvane events app.snapshot", "  corvane events app.snapshot --table Messages",
            "  corvane events app.snapshot --table \"Class Loading\" --json"})
public final class EventsCommand implements Callable<Integer> {
    @Parameters(index = "0", paramLabel = "<snapshot>", description = "The snapshot file.")
    Path mySnapshot;

    @Option(names = "--table", paramLabel = "<name>", description = "Print the rows of this table.")
    String myTable;

    @Option(names = "--json", description = "Write the same content as JSON (times in nanoseconds).")
    boolean myJson;

    private final Io myIo;

    public EventsCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        EventTables tables = new EventTables(SnapshotLoading.load(mySnapshot, myIo).snapshot());
        Object content;
        if (myTable == null) {
            content = tables.list();
        } else {
            EventTableDescription table = tables.table(myTable);
            if (table == null) {
                throw new UserException("no event table \"" + myTable + "\" in " + mySnapshot, 2);
            }
            content = tables.rows(table);
        }
        PrintStream out = myIo.out();
        if (myJson) {
            StringBuilder text = new StringBuilder();
            Json.write(content, text, true, false);
            out.println(text);
        } else if (myTable == null) {
            printTables(tables.list(), out);
        } else {
            printRows(tables.rows(tables.table(myTable)), "", out);
        }
        out.flush();
        return 0;
    }

    private static void printTables(List<Map<String, Object>> tables, PrintStream out) {
        if (tables.isEmpty()) {
            out.println("No event tables.");
        }
        for (Map<String, Object> table : tables) {
            out.printf("%10d  %s%s%n", (Integer) table.get("rows"), table.get("name"),
                    table.containsKey("master") ? "  (rows of " + table.get("master") + ")" : "");
        }
    }

    @SuppressWarnings("unchecked")
    static void printRows(List<Map<String, Object>> rows, String indent, PrintStream out) {
        for (Map<String, Object> row : rows) {
            out.println(indent + EventRowText.format(row));
            Map<String, Object> dependent = (Map<String, Object>) row.get("dependent");
            if (dependent == null) {
                continue;
            }
            for (Map.Entry<String, Object> table : dependent.entrySet()) {
                out.println(indent + "  " + table.getKey() + ":");
                printRows((List<Map<String, Object>>) table.getValue(), indent + "    ", out);
            }
        }
    }
}
