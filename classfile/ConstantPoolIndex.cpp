#include "classfile/ConstantPoolIndex.h"

#include <cstring>

static uint32_t mix(uint64_t x) {
    x ^= x >> 31;
    x *= 0x9E3779B97F4A7C15ull;
    return (uint32_t)(x >> 32);
}

// Length and bytes at the start, the end and two points between, mixed by
// one multiplication: names that share a package still part at their ends.
[[gnu::always_inline]] inline uint32_t ConstantPoolIndex::bucketOf(const char* chars, int length) const {
    uint32_t key = (uint32_t)length * 0x9E3779B1u;
    if (length > 0) {
        const unsigned char* bytes = (const unsigned char*)chars;
        key ^= bytes[0] | bytes[length - 1] << 8 | bytes[length >> 1] << 16 | (uint32_t)bytes[(length * 3) >> 2] << 24;
    }
    return (key * 0x85EBCA6Bu) >> (32 - myTextBits);
}

uint32_t ConstantPoolIndex::hashKey(const Key& key) {
    return mix(((uint64_t)(uint32_t)key.a << 32 | (uint32_t)key.b) ^ ((uint64_t)key.tag * 0xC2B2AE3D27D4EB4Full));
}

bool ConstantPoolIndex::keyOf(const ConstantPoolInfo* entry, Key* key) {
    key->tag = entry->getTag();
    key->b = 0;
    switch (key->tag) {
    case ConstantPoolInfo::INTEGER:
        key->a = static_cast<const ConstantIntInfo*>(entry)->getValue();
        return true;
    case ConstantPoolInfo::LONG: {
        long long value = static_cast<const ConstantLongInfo*>(entry)->getValue();
        key->a = (int32_t)value;
        key->b = (int32_t)(value >> 32);
        return true;
    }
    case ConstantPoolInfo::CLASS:
        key->a = static_cast<const ConstantClassInfo*>(entry)->getNameIndex();
        return true;
    case ConstantPoolInfo::STRING:
        key->a = static_cast<const ConstantStringInfo*>(entry)->getStringIndex();
        return true;
    case ConstantPoolInfo::NAME_AND_TYPE:
        key->a = static_cast<const ConstantNameAndTypeInfo*>(entry)->getNameIndex();
        key->b = static_cast<const ConstantNameAndTypeInfo*>(entry)->getDescriptorIndex();
        return true;
    case ConstantPoolInfo::METHOD_REF:
        key->a = static_cast<const ConstantRefInfo*>(entry)->getClassIndex();
        key->b = static_cast<const ConstantRefInfo*>(entry)->getNameAndTypeIndex();
        return true;
    default:
        return false;
    }
}

bool ConstantPoolIndex::matches(const ConstantPoolInfo* entry, const Key& key) {
    Key own;
    return entry->getTag() == key.tag && keyOf(entry, &own) && own.a == key.a && own.b == key.b;
}

void ConstantPoolIndex::rehash(int capacity) {
    Slot* old = mySlots;
    uint32_t oldCapacity = old != nullptr ? myMask + 1 : 0;
    mySlots = (Slot*)myArena->allocate(sizeof(Slot) * capacity);
    memset(mySlots, 0, sizeof(Slot) * capacity);
    myMask = capacity - 1;
    for (uint32_t i = 0; i < oldCapacity; i++) {
        if (old[i].index != 0) {
            uint32_t at = old[i].hash & myMask;
            while (mySlots[at].index != 0) at = (at + 1) & myMask;
            mySlots[at] = old[i];
        }
    }
}

bool ConstantPoolIndex::isComposite(int tag) {
    return tag == ConstantPoolInfo::STRING || tag == ConstantPoolInfo::NAME_AND_TYPE || tag == ConstantPoolInfo::METHOD_REF;
}

bool ConstantPoolIndex::sameEntry(const ConstantPoolInfo* a, const ConstantPoolInfo* b) {
    Key key;
    return keyOf(b, &key) && matches(a, key);
}

[[gnu::always_inline]] inline void ConstantPoolIndex::addText(const ConstantUtf8Info* text, int index) {
    if (index >= myTextNextCapacity) {
        int capacity = myTextNextCapacity * 2 > index + 64 ? myTextNextCapacity * 2 : index + 64;
        int32_t* next = (int32_t*)myArena->allocate(sizeof(int32_t) * capacity);
        if (myTextNextCapacity > 0) memcpy(next, myTextNext, sizeof(int32_t) * myTextNextCapacity);
        myTextNext = next;
        myTextNextCapacity = capacity;
    }
    uint32_t bucket = bucketOf(text->getChars(), text->getByteLength());
    myTextNext[index] = myTextHeads[bucket];
    myTextHeads[bucket] = index;
}

// Entries come in pool order, so the first of equal ones stays: an entry
// goes into the first empty slot of its probe sequence unless an equal one
// stands before it.
[[gnu::always_inline]] inline void ConstantPoolIndex::add(const ConstantPool& pool, int index) {
    const ConstantPoolInfo* const* entries = pool.getElements();
    const ConstantPoolInfo* entry = entries[index];
    if (entry == nullptr) return;
    int tag = entry->getTag();
    if (tag == ConstantPoolInfo::UTF8) {
        addText(static_cast<const ConstantUtf8Info*>(entry), index);
        return;
    }
    Key key;
    if (!myCompositesIndexed && index < myParsedSize && isComposite(tag)) return;
    if (!keyOf(entry, &key)) return;
    uint32_t hash = hashKey(key);
    if ((uint32_t)(myCount + 1) * 2 > myMask + 1) rehash((myMask + 1) * 2);
    uint32_t at = hash & myMask;
    for (; mySlots[at].index != 0; at = (at + 1) & myMask) {
        if (mySlots[at].hash == hash && sameEntry(entries[mySlots[at].index], entry)) return;
    }
    mySlots[at].index = index;
    mySlots[at].hash = hash;
    myCount++;
}


void ConstantPoolIndex::update(const ConstantPool& pool, int edits) {
    int size = pool.getSize();
    if (mySlots == nullptr || edits != myEditsSeen) {
        // Buckets for about two texts each, as texts are half of a pool.
        myTextBits = 5;
        while ((1 << myTextBits) < size) myTextBits++;
        myTextHeads = (int32_t*)myArena->allocate(sizeof(int32_t) << myTextBits);
        memset(myTextHeads, 0, sizeof(int32_t) << myTextBits);
        myTextNextCapacity = size + 64;
        myTextNext = (int32_t*)myArena->allocate(sizeof(int32_t) * myTextNextCapacity);
        // Room at half load for the entries other than texts that are
        // indexed (about a third of a pool) and the constants a rewrite adds.
        int capacity = 64;
        while (capacity < size * 3 / 4 + 64) capacity *= 2;
        mySlots = nullptr;
        myCount = 0;
        rehash(capacity);
        myIndexedUpTo = 1;
        myEditsSeen = edits;
        myCompositesIndexed = false;
    }
    for (; myIndexedUpTo < size; myIndexedUpTo++) add(pool, myIndexedUpTo);
}

// Parsed composites come in after appended entries; none of those can equal
// one of them, as this runs before the first composite naming only parsed
// entries is looked up, and so before one could be appended.
void ConstantPoolIndex::indexParsedComposites(const ConstantPool& pool) {
    myCompositesIndexed = true;
    int end = myParsedSize < myIndexedUpTo ? myParsedSize : myIndexedUpTo;
    for (int i = 1; i < end; i++) {
        const ConstantPoolInfo* entry = pool.getElements()[i];
        if (entry != nullptr && isComposite(entry->getTag())) add(pool, i);
    }
}

int ConstantPoolIndex::findUtf8(const ConstantPool& pool, int edits, const char* chars, int length) {
    update(pool, edits);
    // A chain runs from the latest entry back: the last match is the lowest.
    int found = 0;
    for (int i = myTextHeads[bucketOf(chars, length)]; i != 0; i = myTextNext[i]) {
        if (static_cast<const ConstantUtf8Info*>(pool.getElements()[i])->equals(chars, length)) found = i;
    }
    return found;
}

int ConstantPoolIndex::findKey(const ConstantPool& pool, int edits, const Key& key) {
    update(pool, edits);
    if (!myCompositesIndexed && isComposite(key.tag) && key.a < myParsedSize && key.b < myParsedSize) {
        indexParsedComposites(pool);
    }
    uint32_t hash = hashKey(key);
    for (uint32_t at = hash & myMask; mySlots[at].index != 0; at = (at + 1) & myMask) {
        if (mySlots[at].hash == hash && matches(pool.getElements()[mySlots[at].index], key)) return mySlots[at].index;
    }
    return 0;
}

int ConstantPoolIndex::findInteger(const ConstantPool& pool, int edits, int value) {
    return findKey(pool, edits, Key{ConstantPoolInfo::INTEGER, value, 0});
}

int ConstantPoolIndex::findLong(const ConstantPool& pool, int edits, long long value) {
    return findKey(pool, edits, Key{ConstantPoolInfo::LONG, (int32_t)value, (int32_t)(value >> 32)});
}

int ConstantPoolIndex::findClass(const ConstantPool& pool, int edits, int nameIndex) {
    return findKey(pool, edits, Key{ConstantPoolInfo::CLASS, nameIndex, 0});
}

int ConstantPoolIndex::findString(const ConstantPool& pool, int edits, int utf8Index) {
    return findKey(pool, edits, Key{ConstantPoolInfo::STRING, utf8Index, 0});
}

int ConstantPoolIndex::findNameAndType(const ConstantPool& pool, int edits, int nameIndex, int descriptorIndex) {
    return findKey(pool, edits, Key{ConstantPoolInfo::NAME_AND_TYPE, nameIndex, descriptorIndex});
}

int ConstantPoolIndex::findMethodRef(const ConstantPool& pool, int edits, int classIndex, int nameAndTypeIndex) {
    return findKey(pool, edits, Key{ConstantPoolInfo::METHOD_REF, classIndex, nameAndTypeIndex});
}
