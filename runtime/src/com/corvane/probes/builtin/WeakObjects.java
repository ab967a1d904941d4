package com.corvane.probes.builtin;

import java.lang.ref.WeakReference;

/**
 * A weak identity map from the program's objects (connections, statements,
 * streams) to what a probe knows of them. The objects these probes meet keep
 * identity equality.
 *
 * Programs make such objects by the thousand each second and drop them soon,
 * so the map is built for that: an open table per stripe, by identity hash,
 * whose only allocation per entry is the weak reference to the key, with no
 * reference queue; entries whose object was collected are cleared when the
 * table is rebuilt. Each stripe has a lock of
 * its own, so the program's threads meet on a lock only when their objects
 * share a stripe. A null key has no value.
 */
final class WeakObjects<V> {
    private static final int STRIPES = 16;
    private static final int FIRST_CAPACITY = 16;
    // Stands for a removed entry: lookups go past it.
    private static final WeakReference<Object> REMOVED = new WeakReference<Object>(null);

    private final Stripe[] myStripes = new Stripe[STRIPES];

    WeakObjects() {
        for (int i = 0; i < STRIPES; i++) {
            myStripes[i] = new Stripe();
        }
    }

    @SuppressWarnings("unchecked")
    V get(Object key) {
        if (key == null) {
            return null;
        }
        int hash = System.identityHashCode(key);
        return (V) stripeOf(hash).get(key, hash);
    }

    void put(Object key, V value) {
        put(key, value, true);
    }

    /** Puts the value unless the key has one already. */
    void putIfAbsent(Object key, V value) {
        put(key, value, false);
    }

    @SuppressWarnings("unchecked")
    V remove(Object key) {
        if (key == null) {
            return null;
        }
        int hash = System.identityHashCode(key);
        return (V) stripeOf(hash).remove(key, hash);
    }

    private void put(Object key, V value, boolean replace) {
        if (key != null) {
            int hash = System.identityHashCode(key);
            stripeOf(hash).put(key, hash, value, replace);
        }
    }

    private Stripe stripeOf(int hash) {
        return myStripes[(hash ^ (hash >>> 16)) & (STRIPES - 1)];
    }

    private static final class Stripe {
        WeakReference<?>[] myKeys = new WeakReference<?>[FIRST_CAPACITY];
        int[] myHashes = new int[FIRST_CAPACITY];
        Object[] myValues = new Object[FIRST_CAPACITY];
        // Slots taken since the last rebuild, removed and collected ones
        // included; at half of the table it is rebuilt.
        int myUsed;

        synchronized Object get(Object key, int hash) {
            int at = find(key, hash);
            return at < 0 ? null : myValues[at];
        }

        synchronized void put(Object key, int hash, Object value, boolean replace) {
            int at = find(key, hash);
            if (at < 0) {
                add(new WeakReference<Object>(key), hash, value);
            } else if (replace) {
                myValues[at] = value;
            }
        }

        synchronized Object remove(Object key, int hash) {
            int at = find(key, hash);
            if (at < 0) {
                return null;
            }
            Object value = myValues[at];
            myKeys[at] = REMOVED;
            myValues[at] = null;
            return value;
        }

        // The slot of the key, or -1.
        private int find(Object key, int hash) {
            int mask = myKeys.length - 1;
            for (int i = slotOf(hash, mask); ; i = (i + 1) & mask) {
                WeakReference<?> reference = myKeys[i];
                if (reference == null) {
                    return -1;
                }
                if (myHashes[i] == hash && reference.get() == key) {
                    return i;
                }
            }
        }

        // Adds a key that is not in the table: into the first slot on its
        // path that is free or removed. Slots of collected objects are left
        // to the next rebuild: telling them would read every reference on
        // the way.
        private void add(WeakReference<?> reference, int hash, Object value) {
            int mask = myKeys.length - 1;
            for (int i = slotOf(hash, mask); ; i = (i + 1) & mask) {
                WeakReference<?> old = myKeys[i];
                if (old == null || old == REMOVED) {
                    if (old == null) {
                        myUsed++;
                    }
                    myKeys[i] = reference;
                    myHashes[i] = hash;
                    myValues[i] = value;
                    break;
                }
            }
            if (myUsed * 2 >= myKeys.length) {
                rebuild();
            }
        }

        // Drops the entries of collected and removed objects, and doubles
        // the table when the live ones fill more than a quarter of it.
        private void rebuild() {
            WeakReference<?>[] keys = myKeys;
            int[] hashes = myHashes;
            Object[] values = myValues;
            int live = 0;
            for (WeakReference<?> reference : keys) {
                if (reference != null && reference.get() != null) {
                    live++;
                }
            }
            int capacity = keys.length;
            while (live * 4 >= capacity) {
                capacity *= 2;
            }
            while (capacity > FIRST_CAPACITY && live * 8 < capacity) {
                capacity /= 2;
            }
            myKeys = new WeakReference<?>[capacity];
            myHashes = new int[capacity];
            myValues = new Object[capacity];
            myUsed = 0;
            int mask = capacity - 1;
            for (int j = 0; j < keys.length; j++) {
                WeakReference<?> reference = keys[j];
                if (reference == null || reference.get() == null) {
                    continue;
                }
                int i = slotOf(hashes[j], mask);
                while (myKeys[i] != null) {
                    i = (i + 1) & mask;
                }
                myKeys[i] = reference;
                myHashes[i] = hashes[j];
                myValues[i] = values[j];
                myUsed++;
            }
        }

        private static int slotOf(int hash, int mask) {
            return (hash * 0x9e3779b9) >>> 7 & mask;
        }
    }
}
