// A small direct-mapped cache of short texts and what they map to, in front
// of the method table's large hash tables. Method names and descriptors
// repeat across classes ("<init>", "()V"), while the tables outgrow the
// processor's caches: a hit here costs one cache line instead of a walk
// through several of theirs. Entries hold the string pool's epoch and are
// void once it moves, as the string indices they carry may be reused.
#pragma once

#include <cstdint>
#include <cstring>

template <typename V>
class RecentTexts {
public:
    // Longer texts are not kept; they are rare and would make slots big.
    static const int MAX_LENGTH = 40;

    RecentTexts() { memset(mySlots, 0, sizeof(mySlots)); }

    const V* find(const char* text, int length, int32_t hash, int epoch) const {
        const Slot& slot = mySlots[(uint32_t)hash & (SLOTS - 1)];
        if (slot.myEpoch != epoch + 1 || slot.myHash != hash || slot.myLength != length) return nullptr;
        return memcmp(slot.myText, text, length) == 0 ? &slot.myValue : nullptr;
    }

    void put(const char* text, int length, int32_t hash, int epoch, const V& value) {
        if (length > MAX_LENGTH) return;
        Slot& slot = mySlots[(uint32_t)hash & (SLOTS - 1)];
        slot.myEpoch = epoch + 1;
        slot.myHash = hash;
        slot.myLength = length;
        slot.myValue = value;
        memcpy(slot.myText, text, length);
    }

private:
    static const int SLOTS = 1024;
    struct alignas(64) Slot {
        int32_t myEpoch;  // the pool's epoch plus one; 0 for an empty slot
        int32_t myHash;
        int32_t myLength;
        V myValue;
        char myText[MAX_LENGTH];
    };
    Slot mySlots[SLOTS];
};
