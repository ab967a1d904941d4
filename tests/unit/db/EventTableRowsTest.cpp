// Event tables made from their description text, and their rows as the
// player makes, closes and deletes them.
#include <gtest/gtest.h>

#include "db/EventTableRows.h"
#include "services/Options.h"
#include "unit/DBTestSupport.h"

class EventTableRowsTest : public DBTest {
protected:
    void TearDown() override {
        setRowLimit(100000);
        DBTest::TearDown();
    }
    static void setRowLimit(int limit) {
        uint64_t capabilities = 0;
        bool usage = false;
        ourOptions.parseOptions(ZString("probetablelengthlimit=") + ZString::fromLong(limit), &capabilities, &usage,
                                false);
        ASSERT_EQ(limit, ourOptions.getProbeTableLengthLimit());
    }
    int table(const char* description) { return EventTableRows::createTableByDescription(lock, db, description); }
    // A new row of the table made at `startNs`; its event id.
    int row(int tableId, int64_t startNs) {
        int eventId = EventTableRows::nextEventId();
        EventTableRows::createRow(lock, db, tableId, eventId, startNs, 0, 0);
        return eventId;
    }
    // The live row of the event, or null.
    const EventRecord* live(int eventId) {
        const EventRecord* found = nullptr;
        db->getEventRecordTable()->forEachRecord([&](long long, const EventRecord& r) {
            if (r.myStamp > 0 && r.myEventId == eventId) found = &r;
        });
        return found;
    }
    int64_t longAt(int tableId, int eventId, int column) {
        return db->getEventTable(tableId)->getLongColumn(*live(eventId), column);
    }
    int intAt(int tableId, int eventId, int column) {
        return db->getEventTable(tableId)->getInt32Column(*live(eventId), column);
    }
};

static const char* const DURATIONS = "D\n4\nuptime_ns\n1\nuptime_ns.end\n1\nexception_str\n2\nkind\nx\n";

TEST_F(EventTableRowsTest, DescriptionsRefusedWithTheirCodeTakeNoId) {
    struct Case {
        const char* description;
        int code;
    } cases[] = {
        {"", EventTableRows::CREATE_NO_LINE},
        {"Name", EventTableRows::CREATE_NO_SECOND_LINE},
        {"Name\n", EventTableRows::CREATE_NO_SECOND_LINE},
        {"Name\nx\n", EventTableRows::CREATE_BAD_COUNT},
        {"Name\n0\n", EventTableRows::CREATE_BAD_COUNT},
        {"Name\n2\nuptime_ns\n1\n", EventTableRows::CREATE_NO_COLUMN_NAME},
        {"Name\n2\nuptime_ns\n1\nother\n", EventTableRows::CREATE_NO_COLUMN_TYPE},
        {"Name\n1\nuptime_ns\n6\n", EventTableRows::CREATE_BAD_TYPE},
    };
    for (const Case& c : cases) EXPECT_EQ(c.code, table(c.description)) << c.description;
    // Fatal: no start time, a reserved name of another type or twice, two masters.
    for (const char* description : {"Name\n1\nsize\n0\n", "Name\n2\nuptime_ns\n1\nthread\n2\n",
                                     "Name\n2\nuptime_ns\n1\nuptime_ns\n1\n",
                                     "Name\n3\nuptime_ns\n1\n40\n3\n41\n3\n"}) {
        EXPECT_THROW(table(description), KZTRuntimeException) << description;
    }
    int id = table(DURATIONS);
    EXPECT_EQ(FIRST_EVENT_TABLE_ID, id);
    EventTable* made = db->getEventTable(id);
    // A type that is no number is 0.
    EXPECT_EQ(EVENT_COLUMN_INT, made->getColumnType(3));
    EXPECT_EQ(1, made->getEndTimeColumn());
    EXPECT_EQ(2, made->getExceptionTextColumn());
    EXPECT_EQ(made, EventTableRows::findTableByDescription(lock, db, DURATIONS));
    while (id < LAST_EVENT_TABLE_ID) id = table("More\n1\nuptime_ns\n1\n");
    EXPECT_EQ(EventTableRows::CREATE_NO_ID, table("More\n1\nuptime_ns\n1\n"));
}

TEST_F(EventTableRowsTest, DependentRowsCountAgainstTheirTopMastersLimit) {
    setRowLimit(3);
    int master = table("M\n2\nuptime_ns\n1\nuptime_ns.end\n1\n");
    int dependent = table((std::string("D\n2\nuptime_ns\n1\n") + std::to_string(master) + "\n3\n").c_str());
    int open = row(master, 1000);
    int child = row(dependent, 5000);
    // The master row left open is closed at the dependent row's start.
    EventTableRows::setInt32(lock, db, dependent, child, 1, open);
    EXPECT_EQ(5000, longAt(master, open, 1));
    row(dependent, 6000);
    int over = row(master, 7000);
    EXPECT_EQ(nullptr, live(over));
    EXPECT_EQ(3, db->getEventTable(master)->getRowCount());
    EXPECT_EQ("M", std::string(EventTableRows::getTopTableNames(lock, db, 3).c_str()));
    EXPECT_EQ("", std::string(EventTableRows::getTopTableNames(lock, db, 4).c_str()));
    // Clearing the master clears its dependents.
    ZVector<int> cleared;
    cleared.push(master);
    EventTableRows::clearTables(lock, db, cleared);
    EXPECT_EQ(0, db->getEventTable(master)->getRowCount());
    EXPECT_EQ(nullptr, live(child));
}

TEST_F(EventTableRowsTest, RowsShorterThanTheMinimumGoAtTheirClose) {
    int id = table(DURATIONS);
    db->getEventTable(id)->setMinimumRowDuration(5);
    int shortRow = row(id, 1000000);
    EventTableRows::closeRow(lock, db, id, shortRow, 5900000, nullptr);
    EXPECT_EQ(nullptr, live(shortRow));
    EXPECT_EQ(0, db->getEventTable(id)->getRowCount());
    // A column set after the delete makes the row again, by the same id.
    EventTableRows::setInt32(lock, db, id, shortRow, 3, 7);
    EXPECT_EQ(7, intAt(id, shortRow, 3));

    int longRow = row(id, 1000000);
    ZString error("java.io.IOException: gone");
    EventTableRows::closeRow(lock, db, id, longRow, 6000000, error.c_str());
    // Without an end time the close keeps the one it has, and still stores the text.
    EventTableRows::closeRow(lock, db, id, longRow, 0, error.c_str());
    EXPECT_EQ(6000000, longAt(id, longRow, 1));
    EXPECT_EQ("java.io.IOException: gone", text(intAt(id, longRow, 2)));
}
