// Tables, stamps and the row stream that snapshots and live deltas are made of.
#include "db/ZFrameStorage.h"
#include "unit/DBTestSupport.h"
#include "foundation/UptimeProvider.h"

// Reads "count, then (index, stamp)" of a stream that holds exactly one row.
static void expectSingleRowHead(StreamReader& r, int index, int stamp) {
    EXPECT_EQ(1, r.readInt());
    EXPECT_EQ(index, r.readInt());
    EXPECT_EQ(stamp, r.readInt());
}

TEST_F(DBTest, TablesStandInTheirSlotsWithTheirFirstIndices) {
    for (int slot = 0; slot < FIXED_TABLE_COUNT; slot++) EXPECT_NE(nullptr, db->getTable(slot)) << slot;
    EXPECT_EQ(nullptr, db->getTable(FIXED_TABLE_COUNT));
    EXPECT_EQ(nullptr, db->getTable(-1));
    EXPECT_EQ(1, db->getThreadTable()->peekNextIndex());
    EXPECT_EQ(1, db->getCurrentGeneration());
    EXPECT_THROW(DB(0), KZTRuntimeException);
}

TEST_F(DBTest, InitializationWritesBuiltInPropertiesAndTheOwnMethod) {
    const char* telemetryKeys[] = {"telec.non.heap.memory.max.kb", "telec.unloaded.class.count",
                                   "telec.peak.thread.count", "telec.total.started.thread.count",
                                   "telec.deadlock.found", "telec.heap.memory.max.kb"};
    for (int i = 0; i < 6; i++) {
        PropertyRecord* record = db->getPropertyTable()->getPtr(i + 1, false);
        ASSERT_NE(nullptr, record);
        EXPECT_EQ(telemetryKeys[i], text(record->myKey));
        EXPECT_TRUE(record->myValue == 0 && record->myStamp == 1) << telemetryKeys[i];
    }
    int startTime = db->findPropertyRecordIndex(str("kzt.vm.starttime"));
    ASSERT_GE(startTime, 7);
    int startText = db->getPropertyTable()->getPtr(startTime, false)->myValue;
    EXPECT_GT(std::stoll(text(startText)), 1500000000000LL);
    for (const char* key : {"qv.system.physical.memory.mb", "kzt.command.line", "kzt.ide_project_name"})
        EXPECT_GE(db->findPropertyRecordIndex(str(key)), 7) << key;
    EXPECT_EQ(-1, db->findPropertyRecordIndex(str("no.such.property")));

    ASSERT_GT(ownLineNumberMethod, 0);
    EXPECT_EQ("own.<<own>>() void []", describe(ownLineNumberMethod));
    EXPECT_EQ(0, ZMethod::getFlags(ownLineNumberMethod) & METHOD_FLAG_NATIVE);
}

TEST_F(DBTest, DeltasCarryChangesDeletionsAndReuseByGeneration) {
    MonitorTable* table = db->getMonitorTable();
    int g1 = db->getCurrentGeneration();
    for (int i = 0; i < 3; i++) {
        int index = table->nextIndex();
        *table->getPtr(index, true) = MonitorRecord{g1, i, 0, 0, 0, 0, 0};
    }
    // An empty delta is the single count 0.
    db->advanceGeneration();
    int g2 = db->getCurrentGeneration();
    std::vector<uint8_t> empty = writeTable(table, g1);
    ASSERT_EQ(4u, empty.size());
    EXPECT_EQ(0, StreamReader(empty).readInt());

    // Deleted after the last snapshot: index and negative stamp, no payload.
    table->deleteRecord(2, g2);
    {
        StreamReader r(writeTable(table, g1));
        expectSingleRowHead(r, 2, -g2);
        EXPECT_TRUE(r.atEnd());
    }
    // A full dump still shows the deleted row, in index order.
    {
        StreamReader r(writeTable(table, 0));
        EXPECT_EQ(3, r.readInt());
        for (int index = 1; index <= 3; index++) {
            EXPECT_EQ(index, r.readInt());
            int stamp = r.readInt();
            EXPECT_EQ(index == 2 ? -g2 : g1, stamp);
            if (stamp > 0) {
                EXPECT_EQ(index - 1, r.readInt());
                for (int i = 0; i < 3; i++) r.readInt();
                r.readLong();
                r.readLong();
            }
        }
        EXPECT_TRUE(r.atEnd());
    }
    // Deleted and re-created at the same index: once, live.
    int reused = table->nextIndex();
    EXPECT_EQ(2, reused);
    EXPECT_EQ(4, table->nextIndex());
    MonitorRecord* record = table->getPtr(reused, true);
    EXPECT_EQ(0, record->myBlockedTRN);  // the deletion cleared the columns
    record->myBlockedTRN = 77;
    record->myStamp = g2;
    {
        StreamReader r(writeTable(table, g1));
        expectSingleRowHead(r, 2, g2);
        EXPECT_EQ(77, r.readInt());
    }
    // Nothing is newer than the present generation.
    EXPECT_EQ(0, StreamReader(writeTable(table, g2)).readInt());
    EXPECT_EQ(g2, table->getRecordModificationStamp(2));
}

TEST_F(DBTest, WriteTableNeedsProgressAndReportsRisingPercents) {
    MemoryWriter writer;
    EXPECT_THROW(db->getThreadTable()->writeTable(writer, 0, 0, 0, nullptr), KZTRuntimeException);

    for (int i = 1; i <= 4; i++) *db->getCpuProfilingTable()->getPtr(i, true) = CpuProfilingRecord{1, i, i};
    SocketPair sockets;
    Progress progress(sockets.writer());
    db->getCpuProfilingTable()->writeTable(writer, 0, 10, 50, &progress);
    EXPECT_EQ(40, progress.getLastPercent());
    // Rows 0..3 of 4 over 10..50 give 10, 20, 30, 40: four messages.
    // Percent never goes back: a second pass over the same range sends nothing.
    db->getCpuProfilingTable()->writeTable(writer, 0, 10, 50, &progress);
    sockets.closeWriter();
    std::vector<uint8_t> messages = sockets.readAll();
    ASSERT_EQ(64u, messages.size());
    StreamReader r(messages);
    for (int percent = 10; percent <= 40; percent += 10) {
        EXPECT_EQ(123456789, r.readLong());
        EXPECT_EQ(100600, r.readInt());
        EXPECT_EQ(percent, r.readInt());
    }
}

TEST_F(DBTest, ClearTableEmptiesRowsAndRestartsIndicesButKeepsCapacity) {
    EventRecordTable* events = db->getEventRecordTable();
    for (int i = 0; i < 600; i++) {
        EventRecord* row = events->getPtr(events->nextIndex(), true);
        row->myStamp = 1;
        for (int v = 0; v < 20; v++) row->myValues.push(v);
    }
    int capacity = events->getCapacity();
    events->clearTable();
    EXPECT_EQ(capacity, events->getCapacity());
    EXPECT_EQ(1, events->nextIndex());
    EXPECT_EQ(nullptr, events->getPtr(1, false));
    EXPECT_EQ(0, events->getRecordModificationStamp(300));
    EXPECT_EQ(0, events->getPtr(5, true)->myValues.getSize());
    EXPECT_EQ(0, StreamReader(writeTable(events, 0)).readInt());
    // A clear does not touch the generation; the caller marks the slot.
    EXPECT_EQ(1, db->getCurrentGeneration());
}

TEST_F(DBTest, TelemetryRowsRollAndSurviveAClearInPlace) {
    TelemetryTable* tele = db->getTelemetryTable();
    TelemetryRecord* rows[TELEMETRY_LIMIT + 1];
    for (int i = 0; i <= TELEMETRY_LIMIT; i++) {
        rows[i] = db->nextTelemetryRow(lock);
        EXPECT_EQ(12, rows[i]->myValues.getSize());
        rows[i]->myValues.push(i);
        rows[i]->myValues.push(i);
    }
    // Capacity N: after N + 1 rows position 0 is gone.
    EXPECT_EQ(0, tele->getRecordModificationStamp(0));
    EXPECT_EQ(1, tele->getRecordModificationStamp(1));
    EXPECT_EQ(1, tele->getRecordModificationStamp(TELEMETRY_LIMIT));
    EXPECT_EQ(rows[0], rows[TELEMETRY_LIMIT]);  // the ring slot was reused
    {
        StreamReader r(writeTable(tele, 0));
        EXPECT_EQ(TELEMETRY_LIMIT, r.readInt());
        EXPECT_EQ(1, r.readInt());  // first row is position 1
    }
    tele->clearTable();
    EXPECT_EQ(0, StreamReader(writeTable(tele, 0)).readInt());
    EXPECT_EQ(0, tele->getRecordModificationStamp(TELEMETRY_LIMIT));
    // Positions go on from where they were; the rows stay allocated.
    TelemetryRecord* next = db->nextTelemetryRow(lock);
    EXPECT_EQ(rows[1], next);
    EXPECT_EQ(12, next->myValues.getSize());  // the old sample's pairs are gone
    StreamReader r(writeTable(tele, 0));
    EXPECT_EQ(1, r.readInt());
    EXPECT_EQ(TELEMETRY_LIMIT + 1, r.readInt());
}

TEST_F(DBTest, TelemetrySampleUpdatesPropertiesPairsAndUptime) {
    ZVector<int> constants;
    for (int i = 0; i <= 6; i++) constants.push(i == 3 ? 0 : i * 10);
    ZVector<int> values;
    for (int i = 0; i < 12; i++) values.push(1000 + i);
    ZVector<int> keys;
    ZVector<int> customValues;
    for (int i = 0; i < 3; i++) {
        keys.push(str(("tele.k" + std::to_string(i)).c_str()));
        customValues.push(i);
    }
    db->advanceGeneration();
    int g = db->getCurrentGeneration();
    TelemetryRecord* row = db->storeTelemetrySample(lock, constants, values, keys, customValues, true);
    EXPECT_TRUE(row->myHasThreadStates);
    EXPECT_EQ(18, row->myValues.getSize());
    EXPECT_EQ(1000, row->myValues[0]);
    EXPECT_NEAR(ourUptimeProvider.getUptimeMs() / 100, row->myValues[11], 1);
    EXPECT_EQ(keys[2], row->myValues[16]);
    // Changed constants restamp their property; property 3 kept its 0.
    EXPECT_EQ(20, db->getPropertyTable()->getPtr(2, false)->myValue);
    EXPECT_EQ(g, db->getPropertyTable()->getPtr(2, false)->myStamp);
    EXPECT_EQ(1, db->getPropertyTable()->getPtr(3, false)->myStamp);
    {
        StreamReader r(writeTable(db->getTelemetryTable(), 0));
        EXPECT_EQ(1, r.readInt());
        r.readInt();
        r.readInt();
        EXPECT_EQ(3, r.readInt());  // three custom pairs
    }
    // A first key of 0 appends no pair at all.
    keys[0] = 0;
    row = db->storeTelemetrySample(lock, constants, values, keys, customValues, false);
    EXPECT_EQ(12, row->myValues.getSize());
    values.push(1);
    EXPECT_THROW(db->storeTelemetrySample(lock, constants, values, keys, customValues, false), KZTRuntimeException);
}

TEST_F(DBTest, SetPropertyStampsOnlyRealChanges) {
    db->setProperty(lock, "kzt.some", 5);
    int index = db->findPropertyRecordIndex(str("kzt.some"));
    int since = db->getCurrentGeneration();
    db->advanceGeneration();
    db->setProperty(lock, "kzt.some", 5);
    EXPECT_EQ(0, StreamReader(writeTable(db->getPropertyTable(), since)).readInt());
    db->setProperty(lock, "kzt.some", 6);
    StreamReader r(writeTable(db->getPropertyTable(), since));
    expectSingleRowHead(r, index, db->getCurrentGeneration());
    EXPECT_EQ(index, db->findPropertyRecordIndex(str("kzt.some")));
}

TEST_F(DBTest, StatisticsCountLiveRowsAndAddUp) {
    for (int i = 0; i < 3; i++) {
        EventRecord* row = db->getEventRecordTable()->getPtr(i + 1, true);
        row->myStamp = 1;
        for (int v = 0; v < (i == 2 ? 11 : 4); v++) row->myValues.push(v);
    }
    ZString text = db->getStatistics();
    EXPECT_TRUE(text.contains("event                records=       3/       0 -  4194560 allocated=0 MB (="));
    EXPECT_TRUE(text.contains("\n  counted records: total=3 with_excess=1\n"));
    EXPECT_TRUE(text.contains("\n  myValues length: total=19 avg=6 max=11\n"));
    EXPECT_TRUE(text.contains("\ntelemetryLimit=5\n"));
    EXPECT_TRUE(text.contains("\nString bodies: 0 MB (="));
    EXPECT_TRUE(text.contains(" bytes)TFI: "));  // the TFI line follows on the same line
    EXPECT_TRUE(text.contains("\nTotal size: "));
    EXPECT_EQ(ZString("2 MB (=3145727 bytes)"), formatBytes(3145728 - 1));
}
