package com.corvane.snapshot;

import java.util.ArrayList;
import java.util.Collection;
import java.util.Collections;
import java.util.List;
import java.util.TreeMap;

/**
 * One table of a snapshot: the rows it carried, by index, with their stamps.
 * A positive stamp is a live row; a negative one a row deleted at that
 * generation, which has no content.
 */
public final class Table<R> {
    /** A row as carried by the file; {@code row} is null for a deleted one. */
    public record Entry<R>(int index, int stamp, R row) {
        public boolean live() {
            return stamp > 0;
        }
    }

    private final int mySlot;
    private final String myName;
    private final TreeMap<Integer, Entry<R>> myEntries = new TreeMap<>();

    Table(int slot, String name) {
        mySlot = slot;
        myName = name;
    }

    public int slot() {
        return mySlot;
    }

    public String name() {
        return myName;
    }

    /** The live row at {@code index}, or null. */
    public R get(int index) {
        Entry<R> entry = myEntries.get(index);
        return entry != null && entry.live() ? entry.row() : null;
    }

    public boolean isLive(int index) {
        Entry<R> entry = myEntries.get(index);
        return entry != null && entry.live();
    }

    public Entry<R> entry(int index) {
        return myEntries.get(index);
    }

    /** Every row the file carried, live and deleted, by ascending index. */
    public Collection<Entry<R>> entries() {
        return Collections.unmodifiableCollection(myEntries.values());
    }

    /** The live rows, by ascending index. */
    public List<Entry<R>> liveEntries() {
        List<Entry<R>> live = new ArrayList<>();
        for (Entry<R> entry : myEntries.values()) {
            if (entry.live()) {
                live.add(entry);
            }
        }
        return live;
    }

    public int liveCount() {
        int count = 0;
        for (Entry<R> entry : myEntries.values()) {
            if (entry.live()) {
                count++;
            }
        }
        return count;
    }

    void put(Entry<R> entry) {
        myEntries.put(entry.index(), entry);
    }

    void clear() {
        myEntries.clear();
    }
}
