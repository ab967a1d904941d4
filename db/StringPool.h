// The string pool: every text of the database is stored once in the
// "string" table and referred to by index. A reverse map finds the index of
// a text; a mark-and-sweep collector gives back the indices of texts that
// nothing refers to any more. All of it runs under ourLock.
#pragma once

#include "foundation/ZLock.h"
#include "foundation/ZString.h"

class StringPool {
public:
    // The collector waits for this many strings, and for this much growth
    // since its last pass.
    static constexpr int COLLECT_MIN_STRINGS = 10000;
    static constexpr int COLLECT_MIN_GROWTH = 2000;

    // The index of `text`, stored on first sight; 0 for null. A pinned index
    // is never collected: for callers that keep bare indices in caches.
    static int getStrIDImpl(const LockHolder& lock, const char* text, bool pin);
    static int getStrID(const LockHolder& lock, const ZString& text) {
        return getStrIDImpl(lock, text.c_str(), false);
    }
    // The text of a live string index, or null. Valid only while the lock is held.
    static const char* getString(const LockHolder& lock, int strId);

    static void collectGarbageStrings(const LockHolder& lock);
    // Moves on whenever indices may have been given back (a collection, a
    // reset): a cache of indices of unpinned strings is valid only while it
    // stays the same.
    static int getEpoch();

    static int getStringCount();
    static int getPinnedCount();
    // Forgets all texts (freeing them) and the collector's state.
    static void resetForTests();
};
