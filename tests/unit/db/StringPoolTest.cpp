// The string pool: interning, pinning, and the collector's thresholds and marks.
#include "db/StringPool.h"
#include "unit/DBTestSupport.h"

class StringPoolTest : public DBTest {
protected:
    // Interns unreferenced texts until the pool holds `count` strings.
    void fillTo(int count) {
        while (StringPool::getStringCount() < count) str(("filler " + std::to_string(myFiller++)).c_str());
        ASSERT_EQ(count, StringPool::getStringCount());
    }
    bool alive(int strId) { return StringPool::getString(lock, strId) != nullptr; }

    int myFiller = 0;
};

TEST_F(StringPoolTest, InterningGivesOneIndexPerText) {
    int since = db->getCurrentGeneration();
    int a = str("alpha");
    db->advanceGeneration();
    EXPECT_EQ(a, str("alpha"));
    // Interning a known text is no change.
    EXPECT_EQ(since, db->getStringTable()->getRecordModificationStamp(a));
    EXPECT_NE(a, str("alphA"));
    int empty = str("");
    EXPECT_GT(empty, 0);
    EXPECT_EQ("", text(empty));
    int pinned = StringPool::getPinnedCount();
    EXPECT_EQ(0, StringPool::getStrIDImpl(lock, nullptr, true));
    EXPECT_EQ(pinned, StringPool::getPinnedCount());
    EXPECT_EQ(a, StringPool::getStrIDImpl(lock, "alpha", true));
    EXPECT_EQ(a, StringPool::getStrIDImpl(lock, "alpha", true));
    EXPECT_EQ(pinned + 1, StringPool::getPinnedCount());
    EXPECT_EQ(nullptr, StringPool::getString(lock, 0));
}

TEST_F(StringPoolTest, CollectorWaitsForTenThousandStringsAndTwoThousandMore) {
    // Telemetry keys are never collected: they keep the map large after a pass.
    for (int i = 0; i < 9000; i++) str(("tele.key " + std::to_string(i)).c_str());
    int garbage = str("garbage");
    fillTo(StringPool::COLLECT_MIN_STRINGS - 1);
    StringPool::collectGarbageStrings(lock);
    EXPECT_TRUE(alive(garbage));
    EXPECT_EQ(StringPool::COLLECT_MIN_STRINGS - 1, StringPool::getStringCount());

    fillTo(StringPool::COLLECT_MIN_STRINGS);
    StringPool::collectGarbageStrings(lock);
    EXPECT_FALSE(alive(garbage));
    int remembered = StringPool::getStringCount();
    EXPECT_GE(remembered, 9000);
    EXPECT_LT(remembered, 9100);  // the keys and what the tables refer to

    // The next pass needs 2000 strings more than the last one left.
    int late = str("late garbage");
    fillTo(remembered + StringPool::COLLECT_MIN_GROWTH - 1);
    StringPool::collectGarbageStrings(lock);
    EXPECT_TRUE(alive(late));
    fillTo(remembered + StringPool::COLLECT_MIN_GROWTH);
    StringPool::collectGarbageStrings(lock);
    EXPECT_FALSE(alive(late));
    EXPECT_EQ(remembered, StringPool::getStringCount());
}

TEST_F(StringPoolTest, CollectorKeepsWhatTablesPinsAndTelemetryKeysHold) {
    int g = db->getCurrentGeneration();
    std::vector<int> kept, dropped;
    auto keep = [&](const char* name) { return kept.emplace_back(str(name)); };
    auto drop = [&](const char* name) { return dropped.emplace_back(str(name)); };
    *db->getThreadTable()->getPtr(1, true) = ThreadRecord{g, keep("thread name"), keep("thread group"), 1, 1, 0, 0, 0, 0};
    int methodIndex = ZMethod::getByName(lock, "m.Class", "mName", "(mParams)", "mReturn", "mSource.java", false);
    ASSERT_GT(methodIndex, 0);
    *db->getMonitorTable()->getPtr(1, true) = MonitorRecord{g, 1, 1, 1, keep("monitor class"), 0, 0};
    *db->getInstanceCountTable()->getPtr(1, true) = InstanceCountRecord{g, keep("instance class"), 1, 1};
    addSnapshotInfo("a snapshot", 1);
    *db->getGenerationTable()->getPtr(1, true) = GenerationRecord{g, keep("generation description"), 0};
    db->setProperty(lock, "property key", keep("property value"));
    keep("property key");
    // A deleted row still holds its columns and keeps them alive.
    *db->getExceptionTable()->getPtr(1, true) = ExceptionRecord{-g, 1, 1, 0, keep("exception class"), 1};
    *db->getAllocPointTable()->getPtr(1, true) = AllocPointRecord{g, 5, keep("alloc class")};
    TelemetryRecord* row = db->nextTelemetryRow(lock);
    row->myValues[3] = drop("fixed value slot");  // elements 0..11 are not string references
    row->myValues.push(keep("custom key"));
    row->myValues.push(keep("custom value"));

    EventTable* table = new EventTable(db, 40, "T", "");
    table->addColumn("uptime_ns", EVENT_COLUMN_LONG);
    table->addColumn("s2", EVENT_COLUMN_STRING);
    table->addColumn("plain", EVENT_COLUMN_INT);
    table->addColumn("s4", EVENT_COLUMN_STRING_ALT);
    db->installEventTable(40, table);
    EventRecord* event = db->getEventRecordTable()->getPtr(1, true);
    event->myStamp = g;
    event->myTableId = 40;
    for (int v : {0, 0, keep("event string 2"), drop("event plain"), keep("event string 4")}) event->myValues.push(v);
    // Rows of a missing table mark nothing.
    EventRecord* orphan = db->getEventRecordTable()->getPtr(2, true);
    orphan->myStamp = g;
    orphan->myTableId = 41;
    orphan->myValues.push(drop("orphan event value"));

    kept.push_back(StringPool::getStrIDImpl(lock, "pinned class", true));
    keep("tele.memory.used");
    drop("plain garbage");

    db->advanceGeneration();
    int collectedAt = db->getCurrentGeneration();
    fillTo(StringPool::COLLECT_MIN_STRINGS);
    StringPool::collectGarbageStrings(lock);

    MethodRecord* m = db->getMethodTable()->getPtr(methodIndex, false);
    kept.insert(kept.end(), {m->myName, m->myParameters, m->myClass, m->myReturnType, m->mySourceFile,
                             db->getSnapshotTable()->getPtr(1, false)->myFileName});
    for (int id : kept) EXPECT_TRUE(alive(id)) << id;
    for (int id : dropped) {
        EXPECT_FALSE(alive(id)) << id;
        EXPECT_EQ(-collectedAt, db->getStringTable()->getRecordModificationStamp(id)) << id;
    }
    // A collected index is handed out again, with a fresh stamp.
    int released = db->getStringTable()->peekNextIndex();
    EXPECT_EQ(-collectedAt, db->getStringTable()->getRecordModificationStamp(released));
    EXPECT_EQ(released, str("new text"));
    EXPECT_EQ(collectedAt, db->getStringTable()->getRecordModificationStamp(released));
    // The old text is gone from the reverse map: interning it makes a new row.
    int reborn = str("plain garbage");
    EXPECT_TRUE(alive(reborn));
    EXPECT_EQ("plain garbage", text(reborn));
}

TEST_F(StringPoolTest, CollectedIndicesAreReusedLastInFirstOut) {
    fillTo(StringPool::COLLECT_MIN_STRINGS);
    int last = str("the last one");
    fillTo(StringPool::COLLECT_MIN_STRINGS + 2000);
    StringPool::collectGarbageStrings(lock);
    EXPECT_FALSE(alive(last));
    // The sweep releases in ascending order; the highest index comes back first.
    int next = str("first after the pass");
    EXPECT_GT(next, last);
    EXPECT_EQ(db->getCurrentGeneration(), db->getStringTable()->getRecordModificationStamp(next));
}
