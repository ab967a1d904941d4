// Event tables declared at run time from their description text, and their
// rows in the "event" table: made lazily by whichever event comes first,
// counted against the limit of their top master table, closed with a
// duration, deleted. All under ourLock, in the player.
#include <atomic>
#include <memory>

#include "db/DB.h"
#include "db/EventTable.h"
#include "db/EventTableRows.h"
#include "db/StringPool.h"
#include "db/ZFrameStorage.h"
#include "foundation/ZMap.h"
#include "services/Logger.h"
#include "services/Options.h"

static std::atomic<int> ourEventCounter(0);

// Event id to "event" row index, over all tables.
static ZMap<int, int>& eventRows() {
    static ZMap<int, int>* map = new ZMap<int, int>(1024);
    return *map;
}

int EventTableRows::nextEventId() {
    return ourEventCounter.fetch_add(1) + 1;
}

// A whole decimal number, or `otherwise`.
static int parseNumber(const ZString& text, int otherwise) {
    bool failed = false;
    int value = text.parseInt(&failed);
    return failed ? otherwise : value;
}

int EventTableRows::createTableByDescription(const LockHolder& lock, DB* db, const ZString& description) {
    ZVectorSafe<ZString> lines;
    int start = 0;
    for (int i = 0; i <= description.getLength(); i++) {
        if (i == description.getLength() || description[i] == '\n') {
            if (i > start || i < description.getLength()) lines.push(description.substring(start, i));
            start = i + 1;
        }
    }
    if (lines.isEmpty() || description.isEmpty()) return CREATE_NO_LINE;
    if (lines.getSize() < 2) return CREATE_NO_SECOND_LINE;
    int columns = parseNumber(lines[1], 0);
    if (columns < 1) return CREATE_BAD_COUNT;
    for (int c = 0; c < columns; c++) {
        int line = 2 + 2 * c;
        if (line >= lines.getSize()) return CREATE_NO_COLUMN_NAME;
        if (line + 1 >= lines.getSize()) return CREATE_NO_COLUMN_TYPE;
        if (parseNumber(lines[line + 1], 0) > EVENT_COLUMN_LONG_ALT) return CREATE_BAD_TYPE;
    }
    // The columns are checked before the table takes an id, so that a
    // refused text uses none up.
    std::unique_ptr<EventTable> table(new EventTable(db, 0, lines[0], description));
    for (int c = 0; c < columns; c++) {
        // A type that is not a number counts as 0.
        int type = parseNumber(lines[3 + 2 * c], 0);
        table->addColumn(lines[2 + 2 * c], type < 0 ? EVENT_COLUMN_INT : type);
    }
    KZT_ASSERT(table->getStartTimeColumn() >= 0);
    int id = db->allocateEventTableId();
    if (id < 0) return CREATE_NO_ID;
    table->assignId(id);
    db->installEventTable(id, table.release());
    return id;
}

EventTable* EventTableRows::findTableByDescription(const LockHolder&, DB* db, const ZString& description) {
    for (int id = FIRST_EVENT_TABLE_ID; id <= LAST_EVENT_TABLE_ID; id++) {
        EventTable* table = db->getEventTable(id);
        if (table != nullptr && table->getDescription().equals(description)) return table;
    }
    return nullptr;
}

EventTable* EventTableRows::getTopMasterTable(DB* db, EventTable* table) {
    EventTable* top = table;
    for (int hops = 0; hops <= LAST_EVENT_TABLE_ID; hops++) {
        EventTable* master = db->getEventTable(top->getMasterTableId());
        if (master == nullptr) break;
        top = master;
    }
    return top;
}

ZString EventTableRows::getTopTableNames(const LockHolder&, DB* db, int limit) {
    ZString names;
    for (int id = FIRST_EVENT_TABLE_ID; id <= LAST_EVENT_TABLE_ID; id++) {
        EventTable* table = db->getEventTable(id);
        if (table == nullptr || db->getEventTable(table->getMasterTableId()) != nullptr) continue;
        if (limit >= 0 && table->getRowCount() < limit) continue;
        if (!names.isEmpty()) names += "\n";
        names += table->getName();
    }
    return names;
}

static void stamp(DB* db, EventRecord* row) {
    row->myStamp = db->getCurrentGeneration();
}

// The row found last: a row's events come one after another, and a row that
// still holds its event id is that event's row, as event ids are never reused.
static int ourLastRowIndex = 0;

EventRecord* EventTableRows::findOrCreateRow(const LockHolder&, DB* db, int eventId, EventTable* table) {
    EventRecordTable* rows = db->getEventRecordTable();
    EventRecord* last = ourLastRowIndex > 0 ? rows->getPtr(ourLastRowIndex, false) : nullptr;
    if (last != nullptr && last->myEventId == eventId && last->myStamp > 0) return last;
    int known = eventRows().get(eventId, 0);
    if (known > 0) {
        EventRecord* row = rows->getPtr(known, false);
        if (row == nullptr || row->myStamp <= 0) return nullptr;
        ourLastRowIndex = known;
        return row;
    }
    EventTable* top = getTopMasterTable(db, table);
    // Over the limit the row is dropped without a word: setters find nothing.
    if (top->getRowCount() >= ourOptions.getProbeTableLengthLimit()) return nullptr;
    int index = rows->nextIndex();
    if (index < 1) return nullptr;
    top->setRowCount(top->getRowCount() + 1);
    EventRecord* row = rows->getPtr(index, true);
    row->myValues.clear();
    row->myValues.resize(table->getValueCount(), 0);
    row->myEventId = eventId;
    row->myTableId = table->getId();
    stamp(db, row);
    eventRows().put(eventId, index);
    ourLastRowIndex = index;
    return row;
}

// The row of the event in the table of that id, made when missing; null for
// no such table or no row.
static EventRecord* rowOf(const LockHolder& lock, DB* db, int tableId, int eventId, EventTable** table) {
    *table = db->getEventTable(tableId);
    return *table != nullptr ? EventTableRows::findOrCreateRow(lock, db, eventId, *table) : nullptr;
}

void EventTableRows::createRow(const LockHolder& lock, DB* db, int tableId, int eventId, int64_t uptimeNs, int frame,
                               int threadNumber) {
    EventTable* table = nullptr;
    EventRecord* row = rowOf(lock, db, tableId, eventId, &table);
    if (row == nullptr) return;
    table->setLongColumn(*row, table->getStartTimeColumn(), uptimeNs);
    if (table->getThreadColumn() >= 0 && threadNumber > 0) table->setInt32Column(*row, table->getThreadColumn(), threadNumber);
    if (table->getFrameColumn() >= 0 && frame >= 1) {
        table->setInt32Column(*row, table->getFrameColumn(), ZFrameStorage::findInstrumentedMethod(lock, frame));
    }
    stamp(db, row);
}

void EventTableRows::closeRow(const LockHolder& lock, DB* db, int tableId, int eventId, int64_t endUptimeNs,
                              const char* exceptionText) {
    EventTable* table = nullptr;
    EventRecord* row = rowOf(lock, db, tableId, eventId, &table);
    if (row == nullptr) return;
    if (endUptimeNs != 0 && table->getEndTimeColumn() >= 0) table->setLongColumn(*row, table->getEndTimeColumn(), endUptimeNs);
    if (table->getMinimumRowDuration() > 0 && table->getEndTimeColumn() >= 0) {
        int64_t duration = table->getLongColumn(*row, table->getEndTimeColumn()) -
                           table->getLongColumn(*row, table->getStartTimeColumn());
        if (duration < (int64_t)table->getMinimumRowDuration() * 1000000) {
            deleteRow(lock, db, tableId, eventId);
            return;
        }
    }
    if (table->getExceptionTextColumn() >= 0) {
        int text = exceptionText != nullptr ? StringPool::getStrIDImpl(lock, exceptionText, false) : 0;
        table->setInt32Column(*row, table->getExceptionTextColumn(), text);
    }
    stamp(db, row);
}

void EventTableRows::deleteRow(const LockHolder&, DB* db, int tableId, int eventId) {
    EventTable* table = db->getEventTable(tableId);
    int index = eventRows().get(eventId, 0);
    if (table == nullptr || index <= 0) return;
    EventRecordTable* rows = db->getEventRecordTable();
    EventRecord* row = rows->getPtr(index, false);
    if (row == nullptr || row->myStamp <= 0) return;
    eventRows().remove(eventId);
    if (ourRemoveObjectMapEvent != nullptr) ourRemoveObjectMapEvent(eventId);
    rows->deleteRecord(index, db->getCurrentGeneration());
    EventTable* top = getTopMasterTable(db, table);
    top->setRowCount(top->getRowCount() - 1);
}

void (*EventTableRows::ourRemoveObjectMapEvent)(int eventId) = nullptr;

void EventTableRows::setInt32(const LockHolder& lock, DB* db, int tableId, int eventId, int column, int value) {
    EventTable* table = nullptr;
    EventRecord* row = rowOf(lock, db, tableId, eventId, &table);
    if (row == nullptr) return;
    table->setInt32Column(*row, column, value);
    stamp(db, row);
    if (table->getColumnType(column) != EVENT_COLUMN_FOREIGN_KEY) return;
    // A dependent row closes a master row that was left open.
    EventTable* master = db->getEventTable(table->getMasterTableId());
    if (master == nullptr || master->getEndTimeColumn() < 0) return;
    EventRecord* masterRow = findOrCreateRow(lock, db, value, master);
    if (masterRow == nullptr || master->getLongColumn(*masterRow, master->getEndTimeColumn()) != 0) return;
    int64_t start = table->getLongColumn(*row, table->getStartTimeColumn());
    master->setLongColumn(*masterRow, master->getEndTimeColumn(), start);
    stamp(db, masterRow);
    ZString text("warning: incorrect probe behavior: master table row had not been closed when dependent row's FK "
                 "was set:\n  uptime(ms): ");
    text.appendLong(start / 1000000).append("\n  master: ").append(master->getName()).append("; eventId=");
    text.appendLong(value).append("\n  dependent: ").append(table->getName()).append("; eventId=").appendLong(eventId);
    Logger::message(text);
}

void EventTableRows::setLong(const LockHolder& lock, DB* db, int tableId, int eventId, int column, int64_t value) {
    EventTable* table = nullptr;
    EventRecord* row = rowOf(lock, db, tableId, eventId, &table);
    if (row == nullptr) return;
    table->setLongColumn(*row, column, value);
    stamp(db, row);
}

void EventTableRows::setString(const LockHolder& lock, DB* db, int tableId, int eventId, int column,
                               const char* value) {
    EventTable* table = nullptr;
    EventRecord* row = rowOf(lock, db, tableId, eventId, &table);
    if (row == nullptr) return;
    table->setInt32Column(*row, column, value != nullptr ? StringPool::getStrIDImpl(lock, value, false) : 0);
    stamp(db, row);
}

void EventTableRows::clearTables(const LockHolder& lock, DB* db, const ZVector<int>& ids) {
    ZVector<int> rowsToDelete;
    db->getEventRecordTable()->forEachRecord([&](long long, EventRecord& row) {
        if (row.myStamp <= 0) return;
        EventTable* table = db->getEventTable(row.myTableId);
        if (table == nullptr) return;
        // The rows of the tables named and of the tables that depend on them.
        for (EventTable* t = table; t != nullptr; t = db->getEventTable(t->getMasterTableId())) {
            if (ids.contains(t->getId())) {
                rowsToDelete.push(row.myTableId);
                rowsToDelete.push(row.myEventId);
                return;
            }
            if (t->getMasterTableId() == t->getId()) return;
        }
    });
    for (int i = 0; i < rowsToDelete.getSize(); i += 2) deleteRow(lock, db, rowsToDelete[i], rowsToDelete[i + 1]);
}
