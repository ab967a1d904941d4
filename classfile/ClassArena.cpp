#include "classfile/ClassArena.h"

#include <atomic>
#include <new>

// One spare chunk for the whole process, passed on by atomic exchange so
// that arenas on several threads never wait for each other.
static std::atomic<void*> ourSpareChunk{nullptr};
// A larger chunk is not worth keeping: few classes need one.
static const size_t MAX_SPARE_SIZE = 1 << 20;

char* ClassArena::takeSpare(size_t size, size_t* taken) {
    Chunk* spare = static_cast<Chunk*>(ourSpareChunk.exchange(nullptr));
    if (spare == nullptr) return nullptr;
    if (spare->size < size) {
        delete[] reinterpret_cast<char*>(spare);
        return nullptr;
    }
    *taken = spare->size;
    return reinterpret_cast<char*>(spare);
}

void ClassArena::offerSpare(Chunk* chunk) {
    void* expected = nullptr;
    if (chunk->size > MAX_SPARE_SIZE || !ourSpareChunk.compare_exchange_strong(expected, chunk)) {
        delete[] reinterpret_cast<char*>(chunk);
    }
}

void ClassArena::grow(size_t size) {
    size_t chunkSize = myNextSize;
    size_t needed = size + sizeof(Chunk) + 8;
    if (chunkSize < needed) chunkSize = needed;
    char* memory = myChunks == nullptr ? takeSpare(chunkSize, &chunkSize) : nullptr;
    if (memory == nullptr) memory = new char[chunkSize];
    Chunk* chunk = reinterpret_cast<Chunk*>(memory);
    chunk->next = myChunks;
    chunk->size = chunkSize;
    myChunks = chunk;
    myFree = memory + ((sizeof(Chunk) + 7) & ~(size_t)7);
    myEnd = memory + chunkSize;
    myNextSize = chunkSize * 2;
}

void ClassArena::release() {
    while (myChunks != nullptr) {
        Chunk* next = myChunks->next;
        if (next == nullptr) {
            offerSpare(myChunks);
        } else {
            delete[] reinterpret_cast<char*>(myChunks);
        }
        myChunks = next;
    }
    myFree = nullptr;
    myEnd = nullptr;
}
