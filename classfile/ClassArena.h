// Bump allocation for the many small, long-lived parts of one class (pool
// entries and their bytes). Everything goes at once when the arena goes, so a
// class costs a few chunk allocations instead of one per constant. The first
// chunk of a released arena is kept for the next one: classes come one after
// another, and a fresh block of this size each time would have the heap
// return its pages and fault them in again.
#pragma once

#include <cstddef>

class ClassArena {
public:
    ClassArena() : myChunks(nullptr), myFree(nullptr), myEnd(nullptr), myNextSize(4096) {}
    ~ClassArena() { release(); }
    ClassArena(const ClassArena&) = delete;
    ClassArena& operator=(const ClassArena&) = delete;

    // The size of the first chunk, before anything is allocated.
    void reserve(size_t bytes) {
        if (myChunks == nullptr && bytes > myNextSize) myNextSize = bytes;
    }
    // 8-byte aligned; never fails short of the heap itself.
    void* allocate(size_t size) {
        size = (size + 7) & ~(size_t)7;
        if ((size_t)(myEnd - myFree) < size) grow(size);
        void* p = myFree;
        myFree += size;
        return p;
    }
    void release();

private:
    struct Chunk {
        Chunk* next;
        size_t size;
    };
    void grow(size_t size);
    static char* takeSpare(size_t size, size_t* taken);
    static void offerSpare(Chunk* chunk);

    Chunk* myChunks;
    char* myFree;
    char* myEnd;
    size_t myNextSize;
};
