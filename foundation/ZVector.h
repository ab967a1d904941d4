// ZVector: a growable array whose first N elements live inside the object.
// Plain ZVector serves pointers and plain values and moves them by bytes;
// ZVectorSafe copies by assignment, for elements that own storage (ZString).
#pragma once

#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "foundation/Failure.h"

template <typename T, int N = 10>
class ZVector {
public:
    ZVector() : size(0), capacity(N), elements(inlineElements) {}
    explicit ZVector(int initialCapacity) : size(0), capacity(N), elements(inlineElements) {
        if (initialCapacity < 1) zvectorFail("zvector::zvector", initialCapacity, -1);
        if (initialCapacity > N) {
            elements = new T[initialCapacity];
            capacity = initialCapacity;
        }
    }
    ZVector(const ZVector& other) : ZVector() { copyFrom(other); }
    virtual ~ZVector() { freeStorage(); }

    ZVector& operator=(const ZVector& other) {
        if (this != &other) {
            size = 0;
            copyFrom(other);
        }
        return *this;
    }

    int getSize() const { return size; }
    int getCapacity() const { return capacity; }
    bool isEmpty() const { return size == 0; }
    T* getElements() { return elements; }
    const T* getElements() const { return elements; }

    int push(const T& value) {
        if (size == capacity) {
            // `value` may be one of our own elements: copy it before the storage moves.
            T copy = value;
            grow(capacity * 2);
            elements[size] = static_cast<T&&>(copy);
        } else {
            elements[size] = value;
        }
        return size++;
    }
    T pop() {
        if (size <= 0) zvectorFail("zvector::pop", size, -1);
        return elements[--size];
    }
    T& peek() {
        if (size <= 0) zvectorFail("zvector::peek", size - 1, size);
        return elements[size - 1];
    }
    T& operator[](int index) {
        if (index < 0 || index >= size) zvectorFail("zvector::[]", index, size);
        return elements[index];
    }
    const T& operator[](int index) const {
        if (index < 0 || index >= size) zvectorFail("zvector::[]", index, size);
        return elements[index];
    }
    T& get(int index) {
        if (index < 0 || index >= size) zvectorFail("zvector::get", index, size);
        return elements[index];
    }
    const T& get(int index) const {
        if (index < 0 || index >= size) zvectorFail("zvector::get", index, size);
        return elements[index];
    }
    void set(int index, const T& value) {
        if (index < 0 || index >= size) zvectorFail("zvector::set", index, size);
        elements[index] = value;
    }
    // From inclusive, to exclusive; the tail moves down to close the gap.
    void removeRange(int from, int to) {
        if (to < 0 || to > size) zvectorFail("zvector::removeRange/toIndex", to, size);
        if (from < 0) zvectorFail("zvector::removeRange/fromIndex", from, size);
        if (from > to) zvectorFail("zvector::removeRange", from, to);
        int removed = to - from;
        if (removed == 0) return;
        for (int i = to; i < size; i++) moveElement(i - removed, i);
        size -= removed;
        if (!std::is_trivially_copyable<T>::value) {
            for (int i = size; i < size + removed; i++) elements[i] = T();
        }
    }
    void remove(int index) { removeRange(index, index + 1); }
    // Drops all elements but keeps the storage.
    void clear() {
        if (!std::is_trivially_copyable<T>::value) {
            for (int i = 0; i < size; i++) elements[i] = T();
        }
        size = 0;
    }
    // Room for `count` elements without further growth.
    void reserve(int count) {
        if (count > capacity) grow(count);
    }
    // Grows to `newSize` elements, new ones set to `fill`.
    void resize(int newSize, const T& fill = T()) {
        if (newSize < 0) zvectorFail("zvector::zvector", newSize, -1);
        T copy = fill;  // `fill` may be one of our own elements
        if (newSize > capacity) grow(newSize > capacity * 2 ? newSize : capacity * 2);
        // Locals, so that stores through the elements cannot alias the
        // vector's own fields and the fill loop vectorises.
        T* out = elements;
        for (int i = size, end = newSize; i < end; i++) out[i] = copy;
        size = newSize;
    }
    int indexOf(const T& value) const {
        for (int i = 0; i < size; i++)
            if (elements[i] == value) return i;
        return -1;
    }
    bool contains(const T& value) const { return indexOf(value) >= 0; }

    T* begin() { return elements; }
    T* end() { return elements + size; }
    const T* begin() const { return elements; }
    const T* end() const { return elements + size; }

protected:
    void grow(int newCapacity) {
        T* grown = new T[newCapacity];
        if (std::is_trivially_copyable<T>::value) {
            memcpy((void*)grown, (const void*)elements, sizeof(T) * size);
        } else {
            for (int i = 0; i < size; i++) grown[i] = static_cast<T&&>(elements[i]);
        }
        freeStorage();
        elements = grown;
        capacity = newCapacity;
    }
    void moveElement(int to, int from) {
        if (std::is_trivially_copyable<T>::value) {
            memcpy((void*)&elements[to], (const void*)&elements[from], sizeof(T));
        } else {
            elements[to] = static_cast<T&&>(elements[from]);
        }
    }
    void copyFrom(const ZVector& other) {
        if (other.size > capacity) grow(other.size);
        if (std::is_trivially_copyable<T>::value) {
            memcpy((void*)elements, (const void*)other.elements, sizeof(T) * other.size);
        } else {
            for (int i = 0; i < other.size; i++) elements[i] = other.elements[i];
        }
        size = other.size;
    }
    void freeStorage() {
        if (elements != inlineElements) delete[] elements;
        elements = inlineElements;
    }

    int32_t size;
    int32_t capacity;
    T* elements;
    T inlineElements[N];
};

template <typename T>
class ZVectorSafe : public ZVector<T, 10> {
    typedef ZVector<T, 10> Base;

public:
    ZVectorSafe() {}
    explicit ZVectorSafe(int initialCapacity) : Base(initialCapacity) {}

    void set(int index, const T& value) {
        if (index < 0 || index >= this->size) zvectorFail("zvectorsafe::set", index, this->size);
        this->elements[index] = value;
    }
    void pushAll(const ZVectorSafe& other) {
        for (int i = 0; i < other.getSize(); i++) this->push(other.elements[i]);
    }
    // Pushes unless an equal element is present; tells whether it pushed.
    bool pushOnce(const T& value) {
        if (this->contains(value)) return false;
        this->push(value);
        return true;
    }
    // Not stable; equal elements are indistinguishable.
    void sort() {
        int count = this->size;
        if (count < 2) return;
        T** pointers = new T*[count];
        for (int i = 0; i < count; i++) pointers[i] = &this->elements[i];
        qsort(pointers, count, sizeof(T*), [](const void* a, const void* b) {
            return (*(T* const*)a)->compareTo(**(T* const*)b);
        });
        ZVectorSafe sorted(count);
        for (int i = 0; i < count; i++) sorted.push(*pointers[i]);
        delete[] pointers;
        for (int i = 0; i < count; i++) this->elements[i] = sorted.elements[i];
    }
};
