package com.corvane.probes;

import com.corvane.runtime.Callback;

/**
 * Remembers the row of an object between two callbacks, say the row of a
 * connection from its opening to its closing, without keeping the object
 * alive: the entry goes when the object is collected or its row is deleted.
 */
public final class ObjectMap {
    private final long myMap = Callback.createObjectMap();

    /** The object's row, or 0. */
    public int get(Object key) {
        return Callback.objectMapGet(myMap, key);
    }

    /** Maps the object to the row; the row it had before, or 0. */
    public int put(Object key, int row) {
        return Callback.objectMapPut(myMap, key, row, false, 0);
    }

    /** Forgets the object; the row it had, or 0. */
    public int remove(Object key) {
        return Callback.objectMapPut(myMap, key, 0, false, 0);
    }
}
