// A hash index over the constants that edits look up (Utf8, Integer, Long,
// Class, String, NameAndType, MethodRef): each key maps to the lowest pool
// index holding it, which is what a scan from 1 would find. It is built on
// the first lookup, takes in appended entries as it goes, and lives in the
// class's arena, so indexing a constant allocates nothing.
#pragma once

#include <cstdint>

#include "classfile/ClassArena.h"
#include "classfile/ConstantPool.h"

class ConstantPoolIndex {
public:
    explicit ConstantPoolIndex(ClassArena* arena)
        : myArena(arena), myNameSlots(nullptr), myNameMask(0), myNameCount(0), myNameEdits(0), mySlots(nullptr),
          myMask(0), myCount(0), myIndexedUpTo(1), myEditsSeen(0) {}

    // Lowest index of an equal entry, 0 when there is none. `edits` counts
    // the changes of Utf8 texts: when it moved, the index starts over.
    int findUtf8(const ConstantPool& pool, int edits, const char* chars, int length);
    int findInteger(const ConstantPool& pool, int edits, int value);
    int findLong(const ConstantPool& pool, int edits, long long value);
    int findClass(const ConstantPool& pool, int edits, int nameIndex);
    int findString(const ConstantPool& pool, int edits, int utf8Index);
    int findNameAndType(const ConstantPool& pool, int edits, int nameIndex, int descriptorIndex);
    int findMethodRef(const ConstantPool& pool, int edits, int classIndex, int nameAndTypeIndex);

    // Class entries by name, for frame types. The key is the name up to its
    // first zero byte; the table holds the Class entries of the pool when it
    // was first asked, and then only those that addClassName brings, so that
    // it answers as a map filled that way would. A hit is a candidate: its
    // whole name may still differ.
    void prepareClassNames(const ConstantPool& pool, int edits);
    int findClassName(const ConstantPool& pool, const char* chars, int length);
    void addClassName(const ConstantPool& pool, int classIndex);

    static uint32_t hashBytes(const char* chars, int length);

private:
    struct Slot {
        int32_t index;  // 0: empty
        uint32_t hash;
    };
    // Keys of the fixed-size entries: the tag and up to two numbers.
    struct Key {
        int tag;
        int32_t a;
        int32_t b;
    };

    void update(const ConstantPool& pool, int edits);
    void add(const ConstantPool& pool, int index);
    void rehash(int capacity);
    int findKey(const ConstantPool& pool, int edits, const Key& key);
    static bool keyOf(const ConstantPoolInfo* entry, Key* key);
    static uint32_t hashKey(const Key& key);
    static bool matches(const ConstantPoolInfo* entry, const Key& key);

    // The text of a Class entry's name up to its first zero byte, or null.
    static const char* classNameOf(const ConstantPool& pool, int classIndex, int* length);
    void insertClassName(const ConstantPool& pool, int classIndex);

    ClassArena* myArena;
    Slot* myNameSlots;
    uint32_t myNameMask;
    int myNameCount;
    int myNameEdits;
    Slot* mySlots;
    uint32_t myMask;
    int myCount;
    int myIndexedUpTo;  // entries below this are in the index
    int myEditsSeen;
};
