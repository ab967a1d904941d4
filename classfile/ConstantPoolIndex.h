// A hash index over the constants that edits look up (Utf8, Integer, Long,
// Class, String, NameAndType, MethodRef): each key maps to the lowest pool
// index holding it, which is what a scan from 1 would find. It is built on
// the first lookup, takes in appended entries as it goes, and lives in the
// class's arena, so indexing a constant allocates nothing.
// Texts, half of a pool and looked up only a few times a class, go into
// chains by a bucket of their length and four of their bytes: a text is
// filed with two stores, and a lookup compares the few texts of its chain.
// Entries made of other entries (String, NameAndType, MethodRef) that were
// read with the class join the index only when a lookup could find one of
// them: a key naming an appended entry can only match an appended entry, and
// the references that rewriting adds all name new texts.
#pragma once

#include <cstdint>

#include "classfile/ClassArena.h"
#include "classfile/ConstantPool.h"

class ConstantPoolIndex {
public:
    explicit ConstantPoolIndex(ClassArena* arena)
        : myArena(arena), myTextHeads(nullptr), myTextBits(0), myTextNext(nullptr), myTextNextCapacity(0),
          mySlots(nullptr), myMask(0), myCount(0), myIndexedUpTo(1), myEditsSeen(0), myParsedSize(0),
          myCompositesIndexed(false) {}

    // Entries below `size` were read with the class; set once, after parsing.
    void setParsedSize(int size) { myParsedSize = size; }

    // Lowest index of an equal entry, 0 when there is none. `edits` counts
    // the changes of Utf8 texts: when it moved, the index starts over.
    int findUtf8(const ConstantPool& pool, int edits, const char* chars, int length);
    int findInteger(const ConstantPool& pool, int edits, int value);
    int findLong(const ConstantPool& pool, int edits, long long value);
    int findClass(const ConstantPool& pool, int edits, int nameIndex);
    int findString(const ConstantPool& pool, int edits, int utf8Index);
    int findNameAndType(const ConstantPool& pool, int edits, int nameIndex, int descriptorIndex);
    int findMethodRef(const ConstantPool& pool, int edits, int classIndex, int nameAndTypeIndex);

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
    void indexParsedComposites(const ConstantPool& pool);
    static bool isComposite(int tag);
    static bool sameEntry(const ConstantPoolInfo* a, const ConstantPoolInfo* b);
    void add(const ConstantPool& pool, int index);
    void addText(const ConstantUtf8Info* text, int index);
    uint32_t bucketOf(const char* chars, int length) const;
    void rehash(int capacity);
    int findKey(const ConstantPool& pool, int edits, const Key& key);
    static bool keyOf(const ConstantPoolInfo* entry, Key* key);
    static uint32_t hashKey(const Key& key);
    static bool matches(const ConstantPoolInfo* entry, const Key& key);

    ClassArena* myArena;
    // Text chains: the latest entry of each bucket, and for each pool index
    // the entry before it in its bucket (0 ends a chain).
    int32_t* myTextHeads;
    int myTextBits;
    int32_t* myTextNext;
    int myTextNextCapacity;
    Slot* mySlots;
    uint32_t myMask;
    int myCount;
    int myIndexedUpTo;  // entries below this are in the index, but for deferred composites
    int myEditsSeen;
    int myParsedSize;
    bool myCompositesIndexed;  // the composites below myParsedSize are in too
};
