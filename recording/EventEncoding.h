// The per-thread event stream: an event is a run of 32-bit elements that
// begins with its id. A 64-bit value takes two elements, low half first.
#pragma once

#include <cstdint>

enum ThreadEventId : int32_t {
    EVENT_METHOD_ENTER_WITH_STACK = 1,  // node, wall time (2), CPU time (2), tracing generation
    EVENT_METHOD_ENTER = 2,             // method, time (2), tracing generation, line
    EVENT_METHOD_EXIT = 3,              // method, time (2), tracing generation
    EVENT_TABLE_ROW_CREATE = 4,         // table id, event id, uptime ns (2), node or -1
    EVENT_TABLE_ROW_CLOSE = 5,          // table id, event id, uptime ns (2), text (2)
    EVENT_TABLE_ROW_DELETE = 6,         // table id, event id
    EVENT_TABLE_SET_INT = 7,            // table id, event id, column, value
    EVENT_TABLE_SET_LONG = 8,           // table id, event id, column, value (2)
    EVENT_TABLE_SET_STRING = 9,         // table id, event id, column, text (2)
    EVENT_EXCEPTION = 10,               // four values
    EVENT_MONITOR_ENTER_BEGIN = 11,     // class string, node, time ns (2), owner TRN
    EVENT_MONITOR_ENTER_END = 12,       // class string, node, time ns (2)
    EVENT_ALLOCATION = 13,              // size (2), node if at least 0, else the negated frame
    LAST_EVENT_ID = 13,
};

// The elements of the longest event.
constexpr int LONGEST_EVENT_LENGTH = 7;

// Elements of each event, id included; 0 for an unknown id.
inline int getEventLength(int id) {
    static const int8_t lengths[LAST_EVENT_ID + 1] = {0, 7, 6, 5, 6, 7, 3, 5, 6, 6, 5, 6, 5, 4};
    return id >= 1 && id <= LAST_EVENT_ID ? lengths[id] : 0;
}

// A text in an event is 0 for none; with the lowest bit set, the address of
// a zero-terminated text in the thread's text store; otherwise a ZString*
// that the event owns.
inline bool isStoredText(int64_t text) { return (text & 1) != 0; }

inline int32_t lowHalf(int64_t value) { return (int32_t)(uint32_t)(uint64_t)value; }
inline int32_t highHalf(int64_t value) { return (int32_t)(uint32_t)((uint64_t)value >> 32); }
inline int64_t joinHalves(int32_t low, int32_t high) {
    return (int64_t)(((uint64_t)(uint32_t)high << 32) | (uint32_t)low);
}
