// The profile database: twenty fixed tables and the event tables 32 to 127,
// and one generation counter whose value stamps every change. The stores
// built on the tables (string pool, methods, code points, frames, node trees,
// thread frame index) have headers of their own above this one; the parts of
// DB that need them are in DBAssembly.cpp. Everything here is guarded by
// ourLock, which the callers hold.
#pragma once

#include <cstdint>

#include "db/DBRecords.h"
#include "db/DBTable.h"
#include "db/EventTable.h"
#include "foundation/ZLock.h"
#include "foundation/ZString.h"

class ThreadFrameIndex;


// Slots of the fixed tables, in the order the snapshot stream walks them.
enum DBTableSlot : int {
    TABLE_STRING = 0,
    TABLE_THREAD = 1,
    TABLE_METHOD = 2,
    TABLE_THREAD_FRAME = 3,
    TABLE_MONITOR = 4,
    TABLE_CPU_PROFILING = 5,
    TABLE_INSTANCE_COUNT = 6,
    TABLE_FRAME = 7,
    TABLE_TABLE_GENERATION = 8,
    TABLE_SNAPSHOT = 9,
    TABLE_ALLOC_INFO = 10,
    TABLE_GENERATION = 11,
    TABLE_PROPERTIES = 12,
    TABLE_TELE = 13,
    TABLE_EXCEPTION = 14,
    TABLE_EVENT = 15,
    TABLE_CODE_POINT = 16,
    TABLE_CALL_COUNT = 17,
    TABLE_ALLOC_POINT = 18,
    TABLE_ALLOC_OBJECT_COUNT = 19,
    FIXED_TABLE_COUNT = 20,
};

// Event table ids.
const int FIRST_EVENT_TABLE_ID = 32;
const int LAST_EVENT_TABLE_ID = 127;

typedef DBTable<StringRecord, ZIntChunkMap<StringRecord>> StringTable;
typedef DBTable<ThreadRecord, ZIntChunkMap<ThreadRecord>> ThreadTable;
typedef DBTable<MethodRecord, ZIntChunkMap<MethodRecord>> MethodTable;
typedef DBTable<ThreadFrameRecord, ZIntChunkMap<ThreadFrameRecord>> ThreadFrameTable;
typedef DBTable<MonitorRecord, ZIntChunkMap<MonitorRecord>> MonitorTable;
typedef DBTable<CpuProfilingRecord, ZIntChunkMap<CpuProfilingRecord>> CpuProfilingTable;
typedef DBTable<InstanceCountRecord, ZIntChunkMap<InstanceCountRecord>> InstanceCountTable;
typedef DBTable<FrameRecord, ZIntChunkMap<FrameRecord>> FrameTable;
typedef DBTable<TableGenerationRecord, ZIntChunkMap<TableGenerationRecord>> TableGenerationTable;
typedef DBTable<SnapshotRecord, ZIntChunkMap<SnapshotRecord>> SnapshotTable;
typedef DBTable<AllocInfoRecord, ZIntChunkMap<AllocInfoRecord>> AllocInfoTable;
typedef DBTable<GenerationRecord, ZIntChunkMap<GenerationRecord>> GenerationTable;
typedef DBTable<PropertyRecord, ZIntChunkMap<PropertyRecord>> PropertyTable;
typedef DBTable<TelemetryRecord, ZRollingArray<TelemetryRecord>> TelemetryTable;
typedef DBTable<ExceptionRecord, ZIntChunkMap<ExceptionRecord>> ExceptionTable;
typedef DBTable<EventRecord, ZIntChunkMap<EventRecord>> EventRecordTable;
typedef DBTable<CodePointRecord, ZIntChunkMap<CodePointRecord>> CodePointTable;
typedef DBTable<CallCountRecord, ZIntChunkMap<CallCountRecord>> CallCountTable;
typedef DBTable<AllocPointRecord, ZIntChunkMap<AllocPointRecord>> AllocPointTable;
typedef DBTable<AllocObjectCountRecord, ZIntChunkMap<AllocObjectCountRecord>> AllocObjectCountTable;

// What the database is made with: the size of the telemetry ring and the
// texts that it keeps for the snapshot header and properties.
struct DBSettings {
    explicit DBSettings(int telemetryLimit = 1) : myTelemetryLimit(telemetryLimit) {}
    int myTelemetryLimit;
    ZString mySessionName;
    ZString mySnapshotNameFormat;
    ZString myIdeProjectName;
};

class DB {
public:
    // Indices 1 to 6 of "properties", updated by position from telemetry.
    static constexpr int BUILT_IN_PROPERTY_COUNT = 6;

    // Creates every table; `telemetryLimit` (rows of "tele") must be at least 1.
    explicit DB(int telemetryLimit);
    ~DB();
    DB(const DB&) = delete;
    DB& operator=(const DB&) = delete;

    // The one place that makes ourDB: tables, the pseudo threads, the
    // built-in properties and the "<<own>>" method.
    static void createAndInitializeDB(const DBSettings& settings);
    // Made by the thread registry under ourLock while the database is set up:
    // the four pseudo threads, of which all but the first are started.
    static void (*ourCreatePseudoThreads)(const LockHolder&);

    int getCurrentGeneration() const { return myCurrentGeneration; }
    // Only the snapshot paths advance the generation.
    void advanceGeneration() { myCurrentGeneration++; }
    int64_t getSessionId() const { return mySessionId; }
    int getTelemetryLimit() const { return myTelemetryLimit; }
    const ZString& getSessionName() const { return mySessionName; }
    const ZString& getSnapshotNameFormat() const { return mySnapshotNameFormat; }

    // A fixed table by slot (0 to 19), null for any other slot.
    DBTableBase* getTable(int slot) const;
    StringTable* getStringTable() const { return myStringTable; }
    ThreadTable* getThreadTable() const { return myThreadTable; }
    MethodTable* getMethodTable() const { return myMethodTable; }
    ThreadFrameTable* getThreadFrameTable() const { return myThreadFrameTable; }
    MonitorTable* getMonitorTable() const { return myMonitorTable; }
    CpuProfilingTable* getCpuProfilingTable() const { return myCpuProfilingTable; }
    InstanceCountTable* getInstanceCountTable() const { return myInstanceCountTable; }
    FrameTable* getFrameTable() const { return myFrameTable; }
    TableGenerationTable* getTableGenerationTable() const { return myTableGenerationTable; }
    SnapshotTable* getSnapshotTable() const { return mySnapshotTable; }
    AllocInfoTable* getAllocInfoTable() const { return myAllocInfoTable; }
    GenerationTable* getGenerationTable() const { return myGenerationTable; }
    PropertyTable* getPropertyTable() const { return myPropertyTable; }
    TelemetryTable* getTelemetryTable() const { return myTelemetryTable; }
    ExceptionTable* getExceptionTable() const { return myExceptionTable; }
    EventRecordTable* getEventRecordTable() const { return myEventRecordTable; }
    CodePointTable* getCodePointTable() const { return myCodePointTable; }
    CallCountTable* getCallCountTable() const { return myCallCountTable; }
    AllocPointTable* getAllocPointTable() const { return myAllocPointTable; }
    AllocObjectCountTable* getAllocObjectCountTable() const { return myAllocObjectCountTable; }
    ThreadFrameIndex* getThreadFrameIndex() const { return myThreadFrameIndex; }

    // Event tables. The database owns them once installed.
    EventTable* getEventTable(int id) const;
    // The next free id, or -1 when all of 32 to 127 are taken.
    int allocateEventTableId();
    void installEventTable(int id, EventTable* table);

    // Sets a property by key text; unchanged values keep their stamp.
    void setProperty(const LockHolder& lock, const char* key, int value);
    // A 64-bit property as the two 32-bit properties key.low and key.high.
    void setLongProperty(const LockHolder& lock, const char* key, int64_t value);
    // The row of the property with that key string index, or -1.
    int findPropertyRecordIndex(int key);
    // Stamps the "table_generation" row of a cleared table's slot.
    void markTableCleared(int slot);

    // The next row of the rolling telemetry table, stamped, with at least
    // the 12 fixed values.
    TelemetryRecord* nextTelemetryRow(const LockHolder& lock);
    // One telemetry sample from the telemetry thread: built-in properties by
    // position (element 0 unused), the 12 fixed values, custom pairs unless
    // the first key is 0, and the uptime as element 11. The row is returned
    // for the thread states, which the caller samples when asked to.
    TelemetryRecord* storeTelemetrySample(const LockHolder& lock, const ZVector<int>& constants,
                                          const ZVector<int>& values, const ZVector<int>& keys,
                                          const ZVector<int>& customValues, bool withThreadStates);

    ZString getStatistics();

    // Deletes ourDB and forgets everything that refers into it (string map,
    // method and code point maps), so that a test can start afresh.
    static void resetForTests();

private:
    void appendEventStatistics(ZString& text);
    void createBuiltInProperties(const LockHolder& lock, const ZString& ideProjectName);

    DBTableBase* myTables[FIXED_TABLE_COUNT];
    // By id; ids below 32 stay empty.
    EventTable* myEventTables[LAST_EVENT_TABLE_ID + 1];
    int32_t myTelemetryLimit;
    int32_t myNextEventTableId;
    int32_t myCurrentGeneration;
    int64_t mySessionId;
    ZString mySessionName;
    ZString mySnapshotNameFormat;

    StringTable* myStringTable;
    ThreadTable* myThreadTable;
    MethodTable* myMethodTable;
    ThreadFrameTable* myThreadFrameTable;
    MonitorTable* myMonitorTable;
    CpuProfilingTable* myCpuProfilingTable;
    InstanceCountTable* myInstanceCountTable;
    FrameTable* myFrameTable;
    TableGenerationTable* myTableGenerationTable;
    SnapshotTable* mySnapshotTable;
    AllocInfoTable* myAllocInfoTable;
    GenerationTable* myGenerationTable;
    PropertyTable* myPropertyTable;
    TelemetryTable* myTelemetryTable;
    ExceptionTable* myExceptionTable;
    EventRecordTable* myEventRecordTable;
    CodePointTable* myCodePointTable;
    CallCountTable* myCallCountTable;
    AllocPointTable* myAllocPointTable;
    AllocObjectCountTable* myAllocObjectCountTable;

    ThreadFrameIndex* myThreadFrameIndex;
};

extern DB* ourDB;
// Straight to two tables of ourDB, for the hot paths.
extern MethodTable* ourMethodTable;
extern FrameTable* ourFrameTable;

// ourDB, or the fatal "db is NULL".
DB* getDBOrFail(const char* file, int line);
#define KZT_DB() getDBOrFail(__FILE__, __LINE__)

// Adds one "snapshot" row; takes ourLock.
void addSnapshotInfo(const ZString& name, int64_t time);
