// Base of the parts of a class that parsing creates in bulk (attributes,
// methods, fields, frames, exception entries). `new (arena) T(...)` takes the
// memory from the class's arena, plain `new` from the heap, and `delete`
// works on both: an arena object's memory simply stays until the arena goes.
#pragma once

#include <cstddef>

#include "classfile/ClassArena.h"

class ArenaObject {
public:
    static void* operator new(size_t size) { return allocate(size, nullptr); }
    static void* operator new(size_t size, ClassArena* arena) { return allocate(size, arena); }
    static void operator delete(void* p) { release(p); }
    static void operator delete(void* p, ClassArena*) { release(p); }

private:
    static void* allocate(size_t size, ClassArena* arena);
    static void release(void* p);
};
