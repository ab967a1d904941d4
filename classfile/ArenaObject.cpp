#include "classfile/ArenaObject.h"

#include <new>

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
