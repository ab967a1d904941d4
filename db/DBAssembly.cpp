// The database as a whole: made with its pseudo threads, built-in properties
// and the "<<own>>" method; its properties by key text; its statistics; and
// its reset for tests. These parts of DB need the stores built on its
// tables, which DB.cpp itself does not know.
#include <cstring>

#include "db/CodePointStorage.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "db/ThreadFrameIndex.h"
#include "db/ZFrameStorage.h"
#include "db/ZMethod.h"
#include "foundation/System.h"
#include "services/Logger.h"

void DB::createAndInitializeDB(const DBSettings& settings) {
    // A second attach keeps the database of the first.
    if (ourDB != nullptr) return;
    DB* db = new DB(settings.myTelemetryLimit);
    db->myThreadFrameIndex = new ThreadFrameIndex();
    ourDB = db;
    ourMethodTable = db->myMethodTable;
    ourFrameTable = db->myFrameTable;
    db->mySessionName = settings.mySessionName;
    db->mySnapshotNameFormat = settings.mySnapshotNameFormat;

    LockHolder lock(&ourLock, LOCK_SITE);
    if (ourCreatePseudoThreads != nullptr) ourCreatePseudoThreads(lock);
    db->createBuiltInProperties(lock, settings.myIdeProjectName);
    ownLineNumberMethod = ZMethod::getByName(lock, "own", "<<own>>", "()", "void", "", false);
    ZString message("line_method: ");
    message.appendLong(ownLineNumberMethod);
    Logger::message(message);
}

void DB::createBuiltInProperties(const LockHolder& lock, const ZString& ideProjectName) {
    static const char* const telemetryKeys[BUILT_IN_PROPERTY_COUNT] = {
        "telec.non.heap.memory.max.kb", "telec.unloaded.class.count", "telec.peak.thread.count",
        "telec.total.started.thread.count", "telec.deadlock.found", "telec.heap.memory.max.kb"};
    for (const char* key : telemetryKeys) {
        int index = myPropertyTable->nextIndex();
        PropertyRecord* record = myPropertyTable->getPtr(index, true);
        record->myKey = StringPool::getStrIDImpl(lock, key, false);
        record->myValue = 0;
        record->myStamp = myCurrentGeneration;
    }

    int64_t memory = getSystemPhysicalMemorySize();
    setProperty(lock, "qv.system.physical.memory.mb", memory > 0 ? (int)(memory / 1048576) : -1);
    setProperty(lock, "kzt.vm.starttime", StringPool::getStrID(lock, ZString::fromLong(getCurrentTimeMs())));
    ZVectorSafe<ZString> arguments;
    getCommandLineParameters(arguments);
    ZString commandLine;
    for (int i = 0; i < arguments.getSize(); i++) {
        if (i > 0) commandLine.appendChar('\n');
        commandLine.append(arguments[i]);
    }
    setProperty(lock, "kzt.command.line", StringPool::getStrID(lock, commandLine));
    setProperty(lock, "kzt.ide_project_name", StringPool::getStrID(lock, ideProjectName));
}

void DB::setLongProperty(const LockHolder& lock, const char* key, int64_t value) {
    setProperty(lock, (ZString(key) + ".low").c_str(), (int32_t)(uint32_t)(uint64_t)value);
    setProperty(lock, (ZString(key) + ".high").c_str(), (int32_t)(uint32_t)((uint64_t)value >> 32));
}

void DB::setProperty(const LockHolder& lock, const char* key, int value) {
    int keyId = StringPool::getStrIDImpl(lock, key, false);
    int index = findPropertyRecordIndex(keyId);
    if (index >= 0) {
        PropertyRecord* record = myPropertyTable->getPtr(index, true);
        if (record->myValue == value) return;
        record->myValue = value;
        record->myStamp = myCurrentGeneration;
        return;
    }
    index = myPropertyTable->nextIndex();
    PropertyRecord* record = myPropertyTable->getPtr(index, true);
    record->myKey = keyId;
    record->myValue = value;
    record->myStamp = myCurrentGeneration;
}

void DB::appendEventStatistics(ZString& text) {
    long rows = 0;
    long withExcess = 0;
    long lengthSum = 0;
    long lengthMax = 0;
    long bytesSum = 0;
    long bytesMax = 0;
    myEventRecordTable->forEachRecord([&](long long, EventRecord& record) {
        if (record.myStamp < 1) return;
        long length = record.myValues.getSize();
        long bytes = (long)record.myValues.getCapacity() * 4 + 8;
        rows++;
        if (length > EventRecord::INLINE_VALUES) withExcess++;
        lengthSum += length;
        bytesSum += bytes;
        if (length > lengthMax) lengthMax = length;
        if (bytes > bytesMax) bytesMax = bytes;
    });
    text.append("  counted records: total=").appendLong(rows).append(" with_excess=").appendLong(withExcess);
    text.append("\n  myValues length: total=").appendLong(lengthSum);
    text.append(" avg=").appendLong(rows > 0 ? lengthSum / rows : 0).append(" max=").appendLong(lengthMax);
    text.append("\n  myValues bytes: total=").append(formatBytes(bytesSum));
    text.append(" avg=").appendLong(rows > 0 ? bytesSum / rows : 0).append(" max=").appendLong(bytesMax);
    text.appendChar('\n');
}

ZString DB::getStatistics() {
    ZString text(4096);
    long total = 0;
    for (int slot = 0; slot < FIXED_TABLE_COUNT; slot++) {
        if (myTables[slot] == nullptr) continue;
        text.append(myTables[slot]->getStatistics(&total)).appendChar('\n');
        if (slot == TABLE_EVENT) appendEventStatistics(text);
    }
    text.append("\ntelemetryLimit=").appendLong(myTelemetryLimit).appendChar('\n');
    long stringBytes = 0;
    myStringTable->forEachRecord([&](long long, StringRecord& record) {
        if (record.myText != nullptr) stringBytes += (long)strlen(record.myText);
    });
    total += stringBytes;
    text.append("\nString bodies: ").append(formatBytes(stringBytes));
    long tfiBytes = myThreadFrameIndex->getAllocatedBytes();
    total += tfiBytes;
    text.append("TFI: ").append(formatBytes(tfiBytes));
    text.append("\nTotal size: ").append(formatBytes(total));
    return text;
}

void DB::resetForTests() {
    StringPool::resetForTests();
    CodePointStorage::resetForTests();
    ZMethod::resetForTests();
    ZFrameStorage::resetForTests();
    if (ourDB != nullptr) delete ourDB->myThreadFrameIndex;
    delete ourDB;
    ourDB = nullptr;
    ourMethodTable = nullptr;
    ourFrameTable = nullptr;
}

void addSnapshotInfo(const ZString& name, int64_t time) {
    LockHolder lock(&ourLock, LOCK_SITE);
    DB* db = KZT_DB();
    SnapshotTable* table = db->getSnapshotTable();
    int index = table->nextIndex();
    SnapshotRecord* record = table->getPtr(index, true);
    record->myFileName = StringPool::getStrID(lock, name);
    record->myTime = time;
    record->myStamp = db->getCurrentGeneration();
}
