package com.corvane.profile;

import com.corvane.snapshot.Rows.MonitorRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import java.util.Map;

/**
 * What a snapshot says about monitors: each "monitor" row is the time a
 * thread spent blocked on a monitor that another thread held, or waiting in
 * Object.wait (then the owner is the thread itself), at one place, with the
 * class of the monitor object.
 */
public final class MonitorProfile {
    /** A wait's place is where the program calls this. */
    static final String OBJECT_WAIT = "java.lang.Object.wait";

    /** One row: the waiting thread, the owner, the monitor's class, where, how long in all and how often. */
    public record Entry(String thread, int trn, String owner, int ownerTrn, String monitorClass, String place,
            List<String> path, boolean waiting, long timeNs, long count) {
    }

    private final List<Entry> myEntries;
    private final Long myDurationNs;

    private MonitorProfile(List<Entry> entries, Long durationNs) {
        myEntries = entries;
        myDurationNs = durationNs;
    }

    /** Rows that counted anything, the longest first. */
    public List<Entry> entries() {
        return myEntries;
    }

    /** How long monitor profiling ran until the capture; null when it never ran. */
    public Long durationNs() {
        return myDurationNs;
    }

    public List<Entry> blocked() {
        return myEntries.stream().filter(e -> !e.waiting()).toList();
    }

    public List<Entry> waits() {
        return myEntries.stream().filter(Entry::waiting).toList();
    }

    public static long totalTimeNs(List<Entry> entries) {
        return entries.stream().mapToLong(Entry::timeNs).sum();
    }

    public static long totalCount(List<Entry> entries) {
        return entries.stream().mapToLong(Entry::count).sum();
    }

    public static MonitorProfile build(Snapshot snapshot) {
        Map<Integer, String> names = Places.threadNames(snapshot);
        List<Entry> entries = new ArrayList<>();
        for (Table.Entry<MonitorRow> entry : snapshot.tables().monitors.liveEntries()) {
            MonitorRow row = entry.row();
            if (row.count() == 0) {
                continue;
            }
            String monitorClass = snapshot.string(row.monitorClass());
            entries.add(new Entry(Places.threadName(names, row.blockedTrn()), row.blockedTrn(),
                    Places.threadName(names, row.ownerTrn()), row.ownerTrn(),
                    monitorClass == null || monitorClass.isEmpty() ? "<unknown class>" : monitorClass,
                    row.frame() == Places.NO_STACK_FRAME ? "<no stack>"
                            : Places.callerOutside(snapshot, row.frame(), OBJECT_WAIT),
                    row.frame() == Places.NO_STACK_FRAME ? List.of() : Places.path(snapshot, row.frame()),
                    row.blockedTrn() == row.ownerTrn(), row.timeNs(), row.count()));
        }
        entries.sort(Comparator.comparingLong(Entry::timeNs).reversed().thenComparing(Entry::thread)
                .thenComparing(Entry::place));
        return new MonitorProfile(entries, snapshot.longProperty("kzt.monitor.profiling.duration.ns"));
    }
}
