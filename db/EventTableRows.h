// The rows of the event tables, as the player makes and changes them, and
// the tables' creation from their description text. Callers hold ourLock.
#pragma once

#include <cstdint>

#include "db/EventTable.h"
#include "foundation/ZLock.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class DB;

class EventTableRows {
public:
    // Results of createTableByDescription below 0.
    enum {
        CREATE_NO_ID = -1,
        CREATE_OUT_OF_MEMORY = -2,
        CREATE_NO_LINE = -3,
        CREATE_NO_SECOND_LINE = -4,
        CREATE_BAD_COUNT = -5,
        CREATE_NO_COLUMN_NAME = -6,
        CREATE_NO_COLUMN_TYPE = -7,
        CREATE_BAD_TYPE = -8,
    };

    // Event ids are unique over all tables and threads.
    static int nextEventId();

    // The new table's id, or a code above. The text: the name; the column
    // count; then a name line and a type line a column.
    static int createTableByDescription(const LockHolder& lock, DB* db, const ZString& description);
    static EventTable* findTableByDescription(const LockHolder& lock, DB* db, const ZString& description);
    static EventTable* getTopMasterTable(DB* db, EventTable* table);
    // Names of the tables without a master that hold at least `limit` rows
    // (all for a negative limit), a line each.
    static ZString getTopTableNames(const LockHolder& lock, DB* db, int limit);

    // The row of the event, made when missing; null over the limit or for a
    // row deleted since.
    static EventRecord* findOrCreateRow(const LockHolder& lock, DB* db, int eventId, EventTable* table);
    static void createRow(const LockHolder& lock, DB* db, int tableId, int eventId, int64_t uptimeNs, int frame,
                          int threadNumber);
    // A row shorter than the table's minimum duration goes at its close.
    // Texts are zero-terminated; null for none.
    static void closeRow(const LockHolder& lock, DB* db, int tableId, int eventId, int64_t endUptimeNs,
                         const char* exceptionText);
    static void deleteRow(const LockHolder& lock, DB* db, int tableId, int eventId);
    static void setInt32(const LockHolder& lock, DB* db, int tableId, int eventId, int column, int value);
    static void setLong(const LockHolder& lock, DB* db, int tableId, int eventId, int column, int64_t value);
    static void setString(const LockHolder& lock, DB* db, int tableId, int eventId, int column, const char* value);
    // Deletes the rows of the tables and of the tables that depend on them.
    static void clearTables(const LockHolder& lock, DB* db, const ZVector<int>& ids);

    // Told of each deleted row, so that the Java object map forgets it.
    static void (*ourRemoveObjectMapEvent)(int eventId);
};
