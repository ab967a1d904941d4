// ZMap and ZSet: open addressing with double hashing over prime capacities,
// keys, values and slot states in three packed arrays.
#pragma once

#include <cstdint>
#include <cstring>

#include "foundation/PrimeFinder.h"

#include "foundation/Failure.h"

// Key hashing and equality. Further key types add overloads next to their
// own definition.
inline int32_t zmap_hashCode(int key) { return key; }
inline int32_t zmap_hashCode(unsigned int key) { return (int32_t)key; }
inline int32_t zmap_hashCode(long key) { return (int32_t)((uint64_t)key >> 32) ^ (int32_t)(uint64_t)key; }
inline int32_t zmap_hashCode(long long key) { return zmap_hashCode((long)key); }
inline int32_t zmap_hashCode(const void* key) { return zmap_hashCode((long)(intptr_t)key); }
int32_t zmap_hashCode(const char* key);
template <typename K> inline bool zmap_equal(const K& a, const K& b) { return a == b; }
bool zmap_equal(const char* a, const char* b);

template <typename K>
class ZHashSlots {
public:
    static const uint8_t FREE = 0;
    static const uint8_t FULL = 1;
    static const uint8_t REMOVED = 2;

    explicit ZHashSlots(int initial) : initialCapacity(initial), capacity(0), keys(nullptr), states(nullptr),
                                       size(0), free(0), maxSize(0) {}

    int getSize() const { return size; }
    int getCapacity() const { return capacity; }
    bool isFull(int slot) const { return states[slot] == FULL; }
    const K& keyAt(int slot) const { return keys[slot]; }

    // The slot holding k, or -1.
    int get_index(const K& k) const {
        if (capacity == 0) return -1;
        uint32_t h = (uint32_t)hashOf(k) & 0x7fffffff;
        int slot = (int)(h % (uint32_t)capacity);
        if (states[slot] == FREE) return -1;
        if (states[slot] == FULL && zmap_equal(keys[slot], k)) return slot;
        int step = (int)(h % (uint32_t)(capacity - 2)) + 1;
        for (;;) {
            slot -= step;
            if (slot < 0) slot += capacity;
            if (states[slot] == FREE) return -1;
            if (states[slot] == FULL && zmap_equal(keys[slot], k)) return slot;
        }
    }

    // The slot where k is to go, or the complement of the slot that holds it.
    int insertion_index(const K& k) const {
        uint32_t h = (uint32_t)hashOf(k) & 0x7fffffff;
        int slot = (int)(h % (uint32_t)capacity);
        if (states[slot] == FREE) return slot;
        if (states[slot] == FULL && zmap_equal(keys[slot], k)) return ~slot;
        int step = (int)(h % (uint32_t)(capacity - 2)) + 1;
        int firstRemoved = -1;
        for (;;) {
            slot -= step;
            if (slot < 0) slot += capacity;
            uint8_t state = states[slot];
            if (state == FREE) return firstRemoved >= 0 ? firstRemoved : slot;
            if (state == FULL) {
                if (zmap_equal(keys[slot], k)) return ~slot;
            } else if (firstRemoved < 0) {
                firstRemoved = slot;
            }
        }
    }

protected:
    static int32_t hashOf(const K& k) { return zmap_hashCode(k); }

    void initSlots() {
        size = 0;
        capacity = PrimeFinder::nextPrime(initialCapacity);
        computeMaxSize();
        free = capacity - size;
        keys = new K[capacity];
        states = new uint8_t[capacity];
        memset(states, 0, capacity);
    }
    void computeMaxSize() {
        int limit = (int)((long long)capacity * 6 / 10);
        maxSize = limit < capacity - 1 ? limit : capacity - 1;
    }
    // After an insertion into `slot` whose previous state was `previous`:
    // tells whether the table must grow.
    bool noteInsertion(uint8_t previous) {
        if (previous == FREE) free--;
        int before = size++;
        return !(before < maxSize && free != 0);
    }
    // Re-inserts every full slot into fresh arrays, walking from the last
    // slot down; `moved(from, to)` carries the caller's parallel data along.
    template <typename Move>
    void rehashSlots(int newCapacity, Move moved) {
        int oldCapacity = capacity;
        K* oldKeys = keys;
        uint8_t* oldStates = states;
        capacity = newCapacity;
        keys = new K[newCapacity];
        states = new uint8_t[newCapacity];
        memset(states, 0, newCapacity);
        for (int i = oldCapacity - 1; i >= 0; i--) {
            if (oldStates[i] != FULL) continue;
            int slot = insertion_index(oldKeys[i]);
            keys[slot] = oldKeys[i];
            states[slot] = FULL;
            moved(i, slot);
        }
        delete[] oldKeys;
        delete[] oldStates;
        computeMaxSize();
        free = capacity - size;
    }
    int checkedSlot(int index) const {
        if (index < 0) index = ~index;
        if (index < 0 || index >= capacity) zmapFail(__LINE__);
        return index;
    }

    int32_t initialCapacity;
    int32_t capacity;
    K* keys;
    uint8_t* states;
    int32_t size;
    int32_t free;
    int32_t maxSize;
};

template <typename K, typename V>
class ZMap : public ZHashSlots<K> {
    typedef ZHashSlots<K> Base;

public:
    explicit ZMap(int initialCapacity = 10) : Base(initialCapacity), values(nullptr) {}
    ~ZMap() { freeArrays(); }
    ZMap(const ZMap&) = delete;
    ZMap& operator=(const ZMap&) = delete;

    void init() {
        freeArrays();
        this->initSlots();
        values = new V[this->capacity];
    }
    bool isInitialized() const { return this->capacity != 0; }

    void put(const K& k, const V& v) {
        if (!isInitialized()) init();
        int index = this->insertion_index(k);
        bool existed = index < 0;
        int slot = this->checkedSlot(index);
        uint8_t previous = this->states[slot];
        this->keys[slot] = k;
        values[slot] = v;
        this->states[slot] = Base::FULL;
        if (existed) return;
        if (this->noteInsertion(previous)) {
            rehash(PrimeFinder::nextPrime(this->capacity * 2));
        }
    }

    V* getPtr(const K& k) {
        int slot = this->get_index(k);
        return slot < 0 ? nullptr : &values[slot];
    }
    // The value of k, or `absent`.
    V get(const K& k, const V& absent = V()) const {
        int slot = this->get_index(k);
        return slot < 0 ? absent : values[slot];
    }
    bool containsKey(const K& k) const { return this->get_index(k) >= 0; }
    V& valueAt(int slot) { return values[slot]; }

    V remove(const K& k) {
        int slot = this->get_index(k);
        if (slot < 0) return V();
        V old = values[slot];
        this->size--;
        this->states[slot] = Base::REMOVED;
        this->keys[slot] = K();
        return old;
    }

    void rehash(int newCapacity) {
        V* oldValues = values;
        values = new V[newCapacity];
        this->rehashSlots(newCapacity, [&](int from, int to) { values[to] = oldValues[from]; });
        delete[] oldValues;
    }

    // Empties the map and shrinks it to the initial capacity.
    void clear() { init(); }

private:
    void freeArrays() {
        delete[] this->keys;
        delete[] values;
        delete[] this->states;
        this->keys = nullptr;
        values = nullptr;
        this->states = nullptr;
        this->capacity = 0;
        this->size = 0;
    }

    V* values;
};

template <typename K>
class ZSet : public ZHashSlots<K> {
    typedef ZHashSlots<K> Base;

public:
    explicit ZSet(int initialCapacity = 10) : Base(initialCapacity) {}
    ~ZSet() { freeArrays(); }
    ZSet(const ZSet&) = delete;
    ZSet& operator=(const ZSet&) = delete;

    void init() {
        freeArrays();
        this->initSlots();
    }
    bool isInitialized() const { return this->capacity != 0; }

    // Tells whether k was new.
    bool add(const K& k) {
        if (!isInitialized()) init();
        int index = this->insertion_index(k);
        if (index < 0) return false;
        int slot = this->checkedSlot(index);
        uint8_t previous = this->states[slot];
        this->keys[slot] = k;
        this->states[slot] = Base::FULL;
        if (this->noteInsertion(previous)) rehash(PrimeFinder::nextPrime(this->capacity * 2));
        return true;
    }
    bool contains(const K& k) const { return this->get_index(k) >= 0; }
    bool remove(const K& k) {
        int slot = this->get_index(k);
        if (slot < 0) return false;
        this->size--;
        this->states[slot] = Base::REMOVED;
        this->keys[slot] = K();
        return true;
    }
    void rehash(int newCapacity) {
        this->rehashSlots(newCapacity, [](int, int) {});
    }
    void clear() { init(); }

private:
    void freeArrays() {
        delete[] this->keys;
        delete[] this->states;
        this->keys = nullptr;
        this->states = nullptr;
        this->capacity = 0;
        this->size = 0;
    }
};

// A non-empty int set never holds the key 0.
template <>
inline bool ZSet<int>::contains(const int& k) const {
    if (this->size != 0 && k == 0) zmapFail(__LINE__);
    return this->get_index(k) >= 0;
}
