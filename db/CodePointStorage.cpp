#include "db/CodePointStorage.h"

#include "services/Logger.h"
#include "db/DB.h"
#include "foundation/ZMap.h"

// Method in the low half of the key, line in the high half.
static ZMap<long, int>& ourMethodAndLine2CodePoint = *new ZMap<long, int>(1000);

static const uint32_t TABLE_FORM = 0x80000000u;
static const uint32_t PACKED_FORM = 0xC0000000u;

int CodePointStorage::getCodePoint(const LockHolder& lock, int method, int line) {
    int encoded = tryEncodeWithoutTable(method, line);
    return encoded != 0 ? encoded : getCodePointUnpacked(lock, method, line);
}

int CodePointStorage::getCodePointUnpacked(const LockHolder&, int method, int line) {
    long key = (long)(((uint64_t)(uint32_t)line << 32) | (uint32_t)method);
    int* known = ourMethodAndLine2CodePoint.getPtr(key);
    if (known != nullptr) return *known;
    DB* db = KZT_DB();
    CodePointTable* table = db->getCodePointTable();
    int index = table->nextIndex();
    CodePointRecord* record = table->getPtr(index, true);
    record->myMethod = method;
    record->myLine = line;
    record->myStamp = db->getCurrentGeneration();
    int codePoint = (int)((uint32_t)index | TABLE_FORM);
    ourMethodAndLine2CodePoint.put(key, codePoint);
    return codePoint;
}

static CodePointRecord* getTableRecord(int codePoint) {
    DB* db = KZT_DB();
    CodePointRecord* record = db->getCodePointTable()->getPtr((int)((uint32_t)codePoint & ~TABLE_FORM), false);
    KZT_ASSERT_NOT_NULL(record);
    return record;
}

int CodePointStorage::getMethod(int codePoint) {
    if (codePoint >= 0) return codePoint;
    if (((uint32_t)codePoint & PACKED_FORM) == PACKED_FORM) return (int)((uint32_t)codePoint & 0x7ffff);
    return getTableRecord(codePoint)->myMethod;
}

int CodePointStorage::getLine(int codePoint) {
    if (codePoint >= 0) return 0;
    if (((uint32_t)codePoint & PACKED_FORM) == PACKED_FORM) return (int)(((uint32_t)codePoint >> 19) & 0x7ff);
    return getTableRecord(codePoint)->myLine;
}

void CodePointStorage::resetForTests() {
    ourMethodAndLine2CodePoint.clear();
}
