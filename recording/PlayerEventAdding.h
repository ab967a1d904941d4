// Rows of event tables, made by any thread: each call becomes one event in
// the caller's own stream, played into the tables later under ourLock. A
// thread the agent does not know hands its events to the unknown thread,
// under the lock.
#pragma once

#include <jni.h>

#include "foundation/ZString.h"

class PlayerEventAdding {
public:
    // The new row's event id, or 0 for no row: no such table, the limit of
    // its top master reached, or an agent thread writing elsewhere than to
    // the messages table.
    static int createTableRow(JNIEnv* env, int tableId);
    // Takes `exceptionText` (may be null). With `noEndTime` the end time
    // stays as it is.
    static void closeTableRow(JNIEnv* env, int tableId, int eventId, bool noEndTime, ZString* exceptionText);
    // The same with the text of a Java string, copied.
    static void closeTableRowWithJavaText(JNIEnv* env, int tableId, int eventId, bool noEndTime,
                                          jstring exceptionText);
    static void deleteTableRow(JNIEnv* env, int tableId, int eventId);
    static void setInt32Column(JNIEnv* env, int tableId, int eventId, int column, int value);
    static void setLongColumn(JNIEnv* env, int tableId, int eventId, int column, int64_t value);
    // Takes `value` (may be null).
    static void setStringColumn(JNIEnv* env, int tableId, int eventId, int column, ZString* value);
    static void setStringColumnFromJava(JNIEnv* env, int tableId, int eventId, int column, jstring value);

    // A row of the messages table, made on first use: category, text and
    // detail (any may be null), taken.
    static void addMessage(JNIEnv* env, ZString* category, ZString* text, ZString* detail);
    // The messages table's id, or 0 before its first message.
    static int ourMessagesTableIndex;

    // Plays the event table events of the streams into the tables.
    static void installPlayers();
};
