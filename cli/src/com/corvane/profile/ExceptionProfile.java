package com.corvane.profile;

import com.corvane.snapshot.Rows.ExceptionRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import java.util.Map;

/**
 * What a snapshot says about exceptions: each "exception" row counts the
 * exceptions of one class that a thread threw at one place and caught at
 * another (none when uncaught). An exception rethrown on its way counts
 * once, from where it was first thrown to where it was last caught.
 */
public final class ExceptionProfile {
    /** One row; `caughtAt` is null for an uncaught exception. */
    public record Entry(String thread, int trn, String exceptionClass, String thrownAt, String caughtAt,
            List<String> throwPath, long count) {
    }

    private final List<Entry> myEntries;

    private ExceptionProfile(List<Entry> entries) {
        myEntries = entries;
    }

    /** Rows that count anything, the most first. */
    public List<Entry> entries() {
        return myEntries;
    }

    public long total() {
        return myEntries.stream().mapToLong(Entry::count).sum();
    }

    public static ExceptionProfile build(Snapshot snapshot) {
        Map<Integer, String> names = Places.threadNames(snapshot);
        List<Entry> entries = new ArrayList<>();
        for (Table.Entry<ExceptionRow> entry : snapshot.tables().exceptions.liveEntries()) {
            ExceptionRow row = entry.row();
            if (row.count() == 0) {
                continue;
            }
            String exceptionClass = snapshot.string(row.exceptionClass());
            entries.add(new Entry(Places.threadName(names, row.trn()), row.trn(),
                    exceptionClass == null || exceptionClass.isEmpty() ? "<unknown>" : exceptionClass,
                    Places.place(snapshot, row.throwFrame()),
                    row.catchFrame() == 0 ? null : Places.place(snapshot, row.catchFrame()),
                    Places.path(snapshot, row.throwFrame()), row.count()));
        }
        entries.sort(Comparator.comparingLong(Entry::count).reversed().thenComparing(Entry::exceptionClass)
                .thenComparing(Entry::thread).thenComparing(Entry::thrownAt));
        return new ExceptionProfile(entries);
    }
}
