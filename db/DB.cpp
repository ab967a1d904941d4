#include "db/DB.h"

#include <cstdlib>
#include <ctime>

#include "services/Logger.h"
#include "db/EventTable.h"
#include "foundation/System.h"
#include "foundation/UptimeProvider.h"

DB* ourDB = nullptr;
MethodTable* ourMethodTable = nullptr;
FrameTable* ourFrameTable = nullptr;

void (*DB::ourCreatePseudoThreads)(const LockHolder&) = nullptr;

static const int INITIAL_TABLE_SIZE = 1024;
static const int METHOD_TABLE_SIZE = 0xa00000;
// Rows of all event tables: the chunk pointers of four million rows (128 KB)
// are made at once, so that recording rows does not copy them again and again.
static const int EVENT_TABLE_SIZE = 0x400000;

DB* getDBOrFail(const char* file, int line) {
    if (ourDB == nullptr) Logger::error("db is NULL", file, line);
    return ourDB;
}

template <typename Table>
static Table* createTable(const char* name, int firstIndex, int initialSize) {
    return new Table(name, firstIndex, initialSize);
}

DB::DB(int telemetryLimit)
    : myTelemetryLimit(telemetryLimit), myNextEventTableId(0), myCurrentGeneration(1), mySessionId(0),
      myThreadFrameIndex(nullptr) {
    KZT_ASSERT(telemetryLimit >= 1);
    int64_t now = (int64_t)time(nullptr);
    int pid = z_getpid();
    mySessionId = ((int64_t)pid << 32) ^ now;
    ZString message("session_id: ");
    message.appendLong(mySessionId).append(" (").appendLong(now).appendChar(',').appendLong(pid).appendChar(')');
    Logger::message(message);

    // Creation order differs from slot order for thread_frame and method.
    myStringTable = createTable<StringTable>("string", 1, INITIAL_TABLE_SIZE);
    myThreadTable = createTable<ThreadTable>("thread", 1, INITIAL_TABLE_SIZE);
    myThreadFrameTable = createTable<ThreadFrameTable>("thread_frame", 1, INITIAL_TABLE_SIZE);
    // Sized up front so that method growth never reallocates the chunk pointers.
    myMethodTable = createTable<MethodTable>("method", 1, METHOD_TABLE_SIZE);
    myMonitorTable = createTable<MonitorTable>("monitor", 1, INITIAL_TABLE_SIZE);
    myCpuProfilingTable = createTable<CpuProfilingTable>("cpu_profiling", 1, INITIAL_TABLE_SIZE);
    myInstanceCountTable = createTable<InstanceCountTable>("instance_count", 1, INITIAL_TABLE_SIZE);
    myFrameTable = createTable<FrameTable>("frame", 1, INITIAL_TABLE_SIZE);
    myTableGenerationTable = createTable<TableGenerationTable>("table_generation", 1, INITIAL_TABLE_SIZE);
    mySnapshotTable = createTable<SnapshotTable>("snapshot", 1, INITIAL_TABLE_SIZE);
    myAllocInfoTable = createTable<AllocInfoTable>("alloc_info", 1, INITIAL_TABLE_SIZE);
    myGenerationTable = createTable<GenerationTable>("generation", 1, INITIAL_TABLE_SIZE);
    myPropertyTable = createTable<PropertyTable>("properties", 1, INITIAL_TABLE_SIZE);
    myTelemetryTable = createTable<TelemetryTable>("tele", 0, telemetryLimit);
    myExceptionTable = createTable<ExceptionTable>("exception", 1, INITIAL_TABLE_SIZE);
    myEventRecordTable = createTable<EventRecordTable>("event", 1, EVENT_TABLE_SIZE);
    myCodePointTable = createTable<CodePointTable>("code_point", 1, INITIAL_TABLE_SIZE);
    myCallCountTable = createTable<CallCountTable>("call_count", 1, INITIAL_TABLE_SIZE);
    myAllocPointTable = createTable<AllocPointTable>("alloc_point", 1, INITIAL_TABLE_SIZE);
    myAllocObjectCountTable = createTable<AllocObjectCountTable>("alloc_object_count", 1, INITIAL_TABLE_SIZE);

    DBTableBase* const bySlot[FIXED_TABLE_COUNT] = {
        myStringTable,        myThreadTable,      myMethodTable,          myThreadFrameTable,
        myMonitorTable,       myCpuProfilingTable, myInstanceCountTable,  myFrameTable,
        myTableGenerationTable, mySnapshotTable,   myAllocInfoTable,       myGenerationTable,
        myPropertyTable,      myTelemetryTable,   myExceptionTable,       myEventRecordTable,
        myCodePointTable,     myCallCountTable,   myAllocPointTable,      myAllocObjectCountTable};
    for (int slot = 0; slot < FIXED_TABLE_COUNT; slot++) myTables[slot] = bySlot[slot];
    for (int id = 0; id <= LAST_EVENT_TABLE_ID; id++) myEventTables[id] = nullptr;
    myNextEventTableId = FIRST_EVENT_TABLE_ID;
}

DB::~DB() {
    for (int slot = 0; slot < FIXED_TABLE_COUNT; slot++) delete myTables[slot];
    for (int id = FIRST_EVENT_TABLE_ID; id <= LAST_EVENT_TABLE_ID; id++) delete myEventTables[id];
}

DBTableBase* DB::getTable(int slot) const {
    return slot >= 0 && slot < FIXED_TABLE_COUNT ? myTables[slot] : nullptr;
}

EventTable* DB::getEventTable(int id) const {
    return id >= FIRST_EVENT_TABLE_ID && id <= LAST_EVENT_TABLE_ID ? myEventTables[id] : nullptr;
}

int DB::allocateEventTableId() {
    if (myNextEventTableId > LAST_EVENT_TABLE_ID) return -1;
    return myNextEventTableId++;
}

void DB::installEventTable(int id, EventTable* table) {
    KZT_ASSERT(id >= FIRST_EVENT_TABLE_ID && id <= LAST_EVENT_TABLE_ID && myEventTables[id] == nullptr);
    myEventTables[id] = table;
}

int DB::findPropertyRecordIndex(int key) {
    int found = -1;
    myPropertyTable->forEachRecord([&](long long index, PropertyRecord& record) {
        if (found < 0 && record.myKey == key) found = (int)index;
    });
    return found;
}

void DB::markTableCleared(int slot) {
    myTableGenerationTable->setRecordModificationStamp(slot, myCurrentGeneration);
}

TelemetryRecord* DB::nextTelemetryRow(const LockHolder&) {
    long long position;
    TelemetryRecord* row = myTelemetryTable->addRow(&position);
    // A reused row drops what the sample before it left.
    row->myValues.clear();
    row->myValues.resize(TelemetryRecord::FIXED_VALUE_COUNT, 0);
    row->myThreadStates.clear();
    row->myHasThreadStates = false;
    row->myStamp = myCurrentGeneration;
    return row;
}

TelemetryRecord* DB::storeTelemetrySample(const LockHolder& lock, const ZVector<int>& constants,
                                          const ZVector<int>& values, const ZVector<int>& keys,
                                          const ZVector<int>& customValues, bool withThreadStates) {
    // Element 0 is unused: property indices begin at 1.
    for (int i = 1; i < constants.getSize(); i++) {
        PropertyRecord* record = myPropertyTable->getPtr(i, false);
        if (record == nullptr || record->myValue == constants[i]) continue;
        record->myValue = constants[i];
        record->myStamp = myCurrentGeneration;
    }
    KZT_ASSERT(values.getSize() == TelemetryRecord::FIXED_VALUE_COUNT);
    TelemetryRecord* row = nextTelemetryRow(lock);
    for (int i = 0; i < TelemetryRecord::FIXED_VALUE_COUNT; i++) row->myValues[i] = values[i];
    row->myHasThreadStates = withThreadStates;
    KZT_ASSERT(keys.getSize() == customValues.getSize());
    // A first key of 0 ends the list before it starts.
    if (keys.getSize() > 0 && keys[0] != 0) {
        for (int i = 0; i < keys.getSize(); i++) {
            row->myValues.push(keys[i]);
            row->myValues.push(customValues[i]);
        }
    }
    row->myValues[TelemetryRecord::UPTIME_VALUE] = (int)(ourUptimeProvider.getUptimeMs() / 100);
    return row;
}

