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
    int column = myColumnTypes.getSize();
    myColumnNames.push(name);
    myColumnTypes.push(type);
    myColumnOffsets.push(myValueCount);
    myValueCount += getIntsForType(type);
    if (name.equals("uptime_ns")) myStartTimeColumn = column;
    else if (name.equals("uptime_ns.end")) myEndTimeColumn = column;
    else if (name.equals("exception_str")) myExceptionTextColumn = column;
    else if (name.equals("thread")) myThreadColumn = column;
    else if (name.equals("frame")) myFrameColumn = column;
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
