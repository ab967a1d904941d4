#include "classfile/ClassArena.h"

#include <new>

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
