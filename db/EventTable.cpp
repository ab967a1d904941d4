#include "db/EventTable.h"

#include "services/Logger.h"

EventTable::EventTable(DB* database, int id, const ZString& name, const ZString& description)
    : myDatabase(database), myName(name), myId(id), myDescription(description), myMinimumRowDuration(0),
      myRowCount(0), myValueCount(0), myStartTimeColumn(-1), myEndTimeColumn(-1), myExceptionTextColumn(-1),
      myThreadColumn(-1), myFrameColumn(-1), myMasterTableId(-1) {}

int EventTable::getIntsForType(int type) {
    switch (type) {
        case EVENT_COLUMN_INT:
        case EVENT_COLUMN_STRING:
        case EVENT_COLUMN_FOREIGN_KEY:
        case EVENT_COLUMN_STRING_ALT: return 1;
        case EVENT_COLUMN_LONG:
        case EVENT_COLUMN_LONG_ALT: return 2;
        default: {
            ZString text("unexpected column type: ");
            text.appendLong(type);
            Logger::error(text, __FILE__, __LINE__);
        }
    }
}

void EventTable::addColumn(const ZString& name, int type) {
    // Names that the agent fills itself, with the type each must have.
    static const struct {
        const char* name;
        int type;
        int EventTable::*column;
    } reserved[] = {
        {"uptime_ns", EVENT_COLUMN_LONG, &EventTable::myStartTimeColumn},
        {"uptime_ns.end", EVENT_COLUMN_LONG, &EventTable::myEndTimeColumn},
        {"exception_str", EVENT_COLUMN_STRING, &EventTable::myExceptionTextColumn},
        {"thread", EVENT_COLUMN_INT, &EventTable::myThreadColumn},
        {"frame", EVENT_COLUMN_INT, &EventTable::myFrameColumn},
    };
    int column = myColumnTypes.getSize();
    for (const auto& r : reserved) {
        if (!name.equals(r.name)) continue;
        KZT_ASSERT(type == r.type && this->*r.column < 0);
        this->*r.column = column;
    }
    if (type == EVENT_COLUMN_FOREIGN_KEY) {
        // One master a table; the column's name is the master's id.
        KZT_ASSERT(!myColumnTypes.contains(EVENT_COLUMN_FOREIGN_KEY));
        bool failed = false;
        int master = name.parseInt(&failed);
        myMasterTableId = failed ? -1 : master;
    }
    int elements = getIntsForType(type);
    myColumnNames.push(name);
    myColumnTypes.push(type);
    myColumnOffsets.push(myValueCount);
    myValueCount += elements;
}

int EventTable::checkedOffset(const EventRecord& row, int column, int elements) const {
    KZT_ASSERT(column >= 0 && column < myColumnTypes.getSize());
    KZT_ASSERT(getIntsForType(myColumnTypes[column]) == elements);
    int offset = myColumnOffsets[column];
    KZT_ASSERT(offset + elements <= row.myValues.getSize());
    return offset;
}

int EventTable::getInt32Column(const EventRecord& row, int column) const {
    return row.myValues[checkedOffset(row, column, 1)];
}

void EventTable::setInt32Column(EventRecord& row, int column, int value) const {
    row.myValues[checkedOffset(row, column, 1)] = value;
}

int64_t EventTable::getLongColumn(const EventRecord& row, int column) const {
    int offset = checkedOffset(row, column, 2);
    return (int64_t)(((uint64_t)(uint32_t)row.myValues[offset + 1] << 32) | (uint32_t)row.myValues[offset]);
}

void EventTable::setLongColumn(EventRecord& row, int column, int64_t value) const {
    int offset = checkedOffset(row, column, 2);
    row.myValues[offset] = (int32_t)(uint32_t)value;
    row.myValues[offset + 1] = (int32_t)(uint32_t)((uint64_t)value >> 32);
}
