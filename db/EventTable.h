// EventTable: the meaning of the rows of one run-time declared table. Its rows
// live in the "event" table as EventRecords; a column occupies one or two
// elements of the record's values. This is the column model that the rest of
// the database reads; creating tables from a description text builds on it.
#pragma once

#include "db/DBRecords.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class DB;

// Column types.
enum : int {
    EVENT_COLUMN_INT = 0,
    EVENT_COLUMN_LONG = 1,
    EVENT_COLUMN_STRING = 2,
    EVENT_COLUMN_FOREIGN_KEY = 3,
    EVENT_COLUMN_STRING_ALT = 4,
    EVENT_COLUMN_LONG_ALT = 5,
};

class EventTable {
public:
    EventTable(DB* database, int id, const ZString& name, const ZString& description);

    // Appends a column. A reserved name ("uptime_ns", "uptime_ns.end",
    // "exception_str", "thread", "frame") must come once with its type, and a
    // table has one foreign key at most: both are asserted.
    void addColumn(const ZString& name, int type);
    // The id that the database gives a table once its columns are known.
    void assignId(int id) { myId = id; }

    int getId() const { return myId; }
    const ZString& getName() const { return myName; }
    const ZString& getDescription() const { return myDescription; }
    int getColumnCount() const { return myColumnTypes.getSize(); }
    const ZString& getColumnName(int column) const { return myColumnNames[column]; }
    int getColumnType(int column) const { return myColumnTypes[column]; }
    int getColumnOffset(int column) const { return myColumnOffsets[column]; }
    // Elements that a row needs.
    int getValueCount() const { return myValueCount; }
    int getStartTimeColumn() const { return myStartTimeColumn; }
    int getEndTimeColumn() const { return myEndTimeColumn; }
    int getExceptionTextColumn() const { return myExceptionTextColumn; }
    int getThreadColumn() const { return myThreadColumn; }
    int getFrameColumn() const { return myFrameColumn; }
    int getMasterTableId() const { return myMasterTableId; }
    void setMasterTableId(int id) { myMasterTableId = id; }
    int getMinimumRowDuration() const { return myMinimumRowDuration; }
    void setMinimumRowDuration(int ms) { myMinimumRowDuration = ms; }
    int getRowCount() const { return myRowCount; }
    void setRowCount(int count) { myRowCount = count; }

    static bool isStringType(int type) { return type == EVENT_COLUMN_STRING || type == EVENT_COLUMN_STRING_ALT; }
    // 1 or 2 elements; any other type is fatal.
    static int getIntsForType(int type);

    // Column access on a row of this table; index and type class are asserted.
    int getInt32Column(const EventRecord& row, int column) const;
    void setInt32Column(EventRecord& row, int column, int value) const;
    int64_t getLongColumn(const EventRecord& row, int column) const;
    void setLongColumn(EventRecord& row, int column, int64_t value) const;

private:
    int checkedOffset(const EventRecord& row, int column, int elements) const;

    DB* myDatabase;
    ZString myName;
    int myId;
    ZVectorSafe<ZString> myColumnNames;
    ZVector<int> myColumnOffsets;
    ZVector<int> myColumnTypes;
    ZString myDescription;
    int myMinimumRowDuration;
    int myRowCount;
    int myValueCount;
    int myStartTimeColumn;
    int myEndTimeColumn;
    int myExceptionTextColumn;
    int myThreadColumn;
    int myFrameColumn;
    int myMasterTableId;
};
