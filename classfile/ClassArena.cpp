#include "classfile/ClassArena.h"

#include <new>

#include "classfile/ArenaObject.h"

void ClassArena::grow(size_t size) {
    size_t chunkSize = myNextSize;
    size_t needed = size + sizeof(Chunk) + 8;
    if (chunkSize < needed) chunkSize = needed;
    char* memory = new char[chunkSize];
    Chunk* chunk = reinterpret_cast<Chunk*>(memory);
    chunk->next = myChunks;
    myChunks = chunk;
    myFree = memory + ((sizeof(Chunk) + 7) & ~(size_t)7);
    myEnd = memory + chunkSize;
    myNextSize = chunkSize * 2;
}

void ClassArena::release() {
    while (myChunks != nullptr) {
        Chunk* next = myChunks->next;
        delete[] reinterpret_cast<char*>(myChunks);
        myChunks = next;
    }
    myFree = nullptr;
    myEnd = nullptr;
}

// Each object is preceded by one word that tells where its memory came from.
static const size_t HEADER = 8;
static const size_t FROM_HEAP = 0x48454150;
static const size_t FROM_ARENA = 0x4152454e;

void* ArenaObject::allocate(size_t size, ClassArena* arena) {
    char* memory = arena != nullptr ? (char*)arena->allocate(size + HEADER) : (char*)::operator new(size + HEADER);
    *(size_t*)memory = arena != nullptr ? FROM_ARENA : FROM_HEAP;
    return memory + HEADER;
}

void ArenaObject::release(void* p) {
    if (p == nullptr) return;
    char* memory = (char*)p - HEADER;
    if (*(size_t*)memory == FROM_HEAP) ::operator delete(memory);
}
