// ZStringMap: a short list of string keys with values, searched from the
// front. For maps of a few entries, where hashing would cost more than it saves.
#pragma once

#include "foundation/ZString.h"
#include "foundation/ZVector.h"

template <typename V>
class ZStringMap {
public:
    ZStringMap(int initialCapacity, const V& absentValue)
        : keys(checkCapacity(initialCapacity)), values(initialCapacity), absent(absentValue) {}

    int getSize() const { return keys.getSize(); }
    const ZString& keyAt(int index) const { return keys.get(index); }
    V& valueAt(int index) { return values.get(index); }
    const V& valueAt(int index) const { return values.get(index); }
    void setValueAt(int index, const V& value) { values.set(index, value); }
    const V& getAbsentValue() const { return absent; }

    int indexOf(const ZString& key) const {
        for (int i = 0; i < keys.getSize(); i++)
            if (keys[i].equals(key)) return i;
        return -1;
    }
    bool containsKey(const ZString& key) const { return indexOf(key) >= 0; }
    V get(const ZString& key) const {
        int at = indexOf(key);
        return at < 0 ? absent : values[at];
    }
    void put(const ZString& key, const V& value) {
        int at = indexOf(key);
        if (at >= 0) {
            values.set(at, value);
        } else {
            keys.push(key);
            values.push(value);
        }
    }
    V remove(const ZString& key) {
        int at = indexOf(key);
        if (at < 0) return absent;
        V old = values[at];
        keys.remove(at);
        values.remove(at);
        return old;
    }
    void clear() {
        keys.clear();
        values.clear();
    }

private:
    static int checkCapacity(int capacity);

    ZVectorSafe<ZString> keys;
    ZVectorSafe<V> values;
    V absent;
};

template <typename V>
int ZStringMap<V>::checkCapacity(int capacity) {
    if (capacity < 1) zmapFail(__LINE__);
    return capacity;
}
