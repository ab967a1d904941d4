#include "db/StringPool.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "services/Logger.h"
#include "db/DB.h"
#include "db/EventTable.h"
#include "foundation/System.h"
#include "foundation/UptimeProvider.h"
#include "foundation/ZMap.h"

// An interned text with its hash and string index. Probing compares hashes
// first and reads a text only when they agree; the index comes with the key,
// so a lookup touches no further array.
struct StringEntry {
    const char* myText;
    int32_t myHash;
    int32_t myIndex;

    bool operator==(const StringEntry& other) const {
        return myHash == other.myHash && (myText == other.myText || strcmp(myText, other.myText) == 0);
    }
};
inline int32_t zmap_hashCode(const StringEntry& entry) {
    return entry.myHash;
}
static StringEntry entryOf(const char* text, int index) {
    return StringEntry{text, zmap_hashCode(text), index};
}

// Text to string index. The texts are those that the StringRecords own; the
// set owns nothing.
static ZSet<StringEntry>& ourString2ID = *new ZSet<StringEntry>(10000);
static ZSet<int>& ourPinnedStrIDs = *new ZSet<int>(1000);
static int ourSizeAfterLastCollection = 0;
static int ourCollectionCounter = 0;
static int ourEpoch = 0;

static void ensurePinned(int strId, const char* text) {
    if (ourPinnedStrIDs.contains(strId)) return;
    ourPinnedStrIDs.add(strId);
    ZString message("SP: pin ");
    message.append(text);
    Logger::message(message);
}

int StringPool::getStrIDImpl(const LockHolder&, const char* text, bool pin) {
    if (text == nullptr) return 0;
    StringEntry entry = entryOf(text, 0);
    int slot = ourString2ID.get_index(entry);
    if (slot >= 0) {
        int known = ourString2ID.keyAt(slot).myIndex;
        if (pin) ensurePinned(known, text);
        return known;
    }
    char* copy = z_strdup(text);
    if (copy == nullptr) throw std::bad_alloc();
    DB* db = KZT_DB();
    StringTable* table = db->getStringTable();
    int index = table->nextIndex();
    entry.myText = copy;
    entry.myIndex = index;
    ourString2ID.add(entry);
    if (pin) ensurePinned(index, copy);
    StringRecord* record = table->getPtr(index, true);
    record->myText = copy;
    record->myStamp = db->getCurrentGeneration();
    return index;
}

const char* StringPool::getString(const LockHolder&, int strId) {
    if (strId <= 0 || ourDB == nullptr) return nullptr;
    StringRecord* record = ourDB->getStringTable()->getPtr(strId, false);
    return record != nullptr && record->myStamp > 0 ? record->myText : nullptr;
}

int StringPool::getStringCount() {
    return ourString2ID.getSize();
}

int StringPool::getEpoch() {
    return ourEpoch;
}

int StringPool::getPinnedCount() {
    return ourPinnedStrIDs.getSize();
}

// ---- Collector ----

static void mark(ZSet<int>& used, int strId) {
    if (strId != 0) used.add(strId);
}

// Every string index that a row refers to, deleted rows included: they still
// carry their columns.
static void markUsedStrings(DB* db, ZSet<int>& used) {
    db->getThreadTable()->forEachRecord([&](long long, ThreadRecord& r) {
        mark(used, r.myName);
        mark(used, r.myGroup);
    });
    db->getMethodTable()->forEachRecord([&](long long, MethodRecord& r) {
        mark(used, r.myName);
        mark(used, r.myParameters);
        mark(used, r.myClass);
        mark(used, r.myReturnType);
        mark(used, r.mySourceFile);
    });
    db->getMonitorTable()->forEachRecord([&](long long, MonitorRecord& r) { mark(used, r.myMonitorClass); });
    db->getInstanceCountTable()->forEachRecord([&](long long, InstanceCountRecord& r) { mark(used, r.myClass); });
    db->getSnapshotTable()->forEachRecord([&](long long, SnapshotRecord& r) { mark(used, r.myFileName); });
    db->getGenerationTable()->forEachRecord([&](long long, GenerationRecord& r) { mark(used, r.myDescription); });
    // A value that is a plain number is marked too: it can only keep a
    // string alive for one more pass.
    db->getPropertyTable()->forEachRecord([&](long long, PropertyRecord& r) {
        mark(used, r.myKey);
        mark(used, r.myValue);
    });
    db->getExceptionTable()->forEachRecord([&](long long, ExceptionRecord& r) { mark(used, r.myExceptionClass); });
    db->getAllocPointTable()->forEachRecord([&](long long, AllocPointRecord& r) { mark(used, r.myClass); });
    db->getTelemetryTable()->forEachRecord([&](long long, TelemetryRecord& r) {
        for (int i = TelemetryRecord::FIXED_VALUE_COUNT; i < r.myValues.getSize(); i++) mark(used, r.myValues[i]);
    });
    db->getEventRecordTable()->forEachRecord([&](long long, EventRecord& r) {
        if (r.myStamp < 1) return;
        EventTable* table = db->getEventTable(r.myTableId);
        if (table == nullptr) return;
        for (int column = 0; column < table->getColumnCount(); column++) {
            if (EventTable::isStringType(table->getColumnType(column))) mark(used, table->getInt32Column(r, column));
        }
    });
}

void StringPool::collectGarbageStrings(const LockHolder&) {
    int size = ourString2ID.getSize();
    if (size < COLLECT_MIN_STRINGS || size - ourSizeAfterLastCollection < COLLECT_MIN_GROWTH) return;
    DB* db = KZT_DB();
    StringTable* table = db->getStringTable();
    if (table->getCapacity() <= 0) return;
    int64_t startMs = ourUptimeProvider.getUptimeMs();

    ZSet<int> used(size);
    markUsedStrings(db, used);
    ourEpoch++;

    int generation = db->getCurrentGeneration();
    int collected = 0;
    int keptTele = 0;
    table->forEachRecord([&](long long index, StringRecord& r) {
        if (r.myText == nullptr || index == 0) return;
        if (used.contains((int)index) || ourPinnedStrIDs.contains((int)index)) return;
        if (r.myStamp < 1) return;
        // Telemetry column keys are looked up by name for the whole run.
        if (strncmp(r.myText, "tele.", 5) == 0) {
            keptTele++;
            return;
        }
        ourString2ID.remove(entryOf(r.myText, 0));
        free(r.myText);
        r.myText = nullptr;
        r.myStamp = -generation;
        table->releaseIndex((int)index);
        collected++;
    });

    ourSizeAfterLastCollection = ourString2ID.getSize();
    ZString message("SP: gc #");
    message.appendLong(ourCollectionCounter++).appendChar(' ').appendLong(collected);
    message.append(" ms=").appendLong(ourUptimeProvider.getUptimeMs() - startMs);
    message.append(" sz=").appendLong(ourSizeAfterLastCollection);
    message.append(" p=").appendLong(ourPinnedStrIDs.getSize());
    message.append(" t=").appendLong(keptTele);
    Logger::message(message);
}

void StringPool::resetForTests() {
    if (ourDB != nullptr) {
        ourDB->getStringTable()->forEachRecord([](long long, StringRecord& r) {
            free(r.myText);
            r.myText = nullptr;
        });
    }
    ourString2ID.clear();
    ourPinnedStrIDs.clear();
    ourSizeAfterLastCollection = 0;
    ourCollectionCounter = 0;
    ourEpoch++;
}
