// The natives of the event tables and the messages table: tables declared by
// their description, rows made and changed by any thread through its event
// stream, and the string pool's ids for probes that keep them.
#include "agent/NativeTable.h"
#include "db/DB.h"
#include "db/EventTableRows.h"
#include "db/StringPool.h"
#include "recording/PlayerEventAdding.h"
#include "recording/ThreadInfo.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

// A copy of a Java string that the event stream takes, or null.
static ZString* takeString(JNIEnv* env, jstring text) {
    return text != nullptr ? createZSPtr(env, text) : nullptr;
}

// The table of that description, made on first use: a probe class that is
// loaded again finds its table.
static jint createEventTable(JNIEnv* env, jstring owner, jstring description) {
    if (description == nullptr) return EventTableRows::CREATE_NO_LINE;
    ZString text = createZS(env, description);
    LockHolder lock(&ourLock, LOCK_SITE);
    DB* db = KZT_DB();
    EventTable* known = EventTableRows::findTableByDescription(lock, db, text);
    if (known != nullptr) return known->getId();
    int id = EventTableRows::createTableByDescription(lock, db, text);
    ZString line = ZString("event table created by ") + (owner != nullptr ? createZS(env, owner) : ZString("?")) +
                   ": \"" + text.replaceAll("\n", "\\n") + "\" -> " + ZString::fromLong(id);
    Logger::message(line);
    return id;
}

static jstring getEventTableDescription(JNIEnv* env, jint tableId) {
    LockHolder lock(&ourLock, LOCK_SITE);
    EventTable* table = KZT_DB()->getEventTable(tableId);
    return table != nullptr ? newJavaString(env, table->getDescription()) : nullptr;
}

static void setMinimumRecordedLastingEventTime(jint tableId, jint ms) {
    LockHolder lock(&ourLock, LOCK_SITE);
    EventTable* table = KZT_DB()->getEventTable(tableId);
    if (table != nullptr) table->setMinimumRowDuration(ms < 0 ? 0 : ms);
}

static jint getStrID(JNIEnv* env, jstring text) {
    if (text == nullptr) return 0;
    ZString value = createZS(env, text);
    LockHolder lock(&ourLock, LOCK_SITE);
    return StringPool::getStrIDImpl(lock, value.c_str(), true);
}

static jstring getTopEventTableNames(JNIEnv* env) {
    LockHolder lock(&ourLock, LOCK_SITE);
    return newJavaString(env, EventTableRows::getTopTableNames(lock, KZT_DB(), -1));
}

static void clearEventTables(JNIEnv* env, jstring names) {
    if (names == nullptr) return;
    ZVectorSafe<ZString> wanted;
    createZS(env, names).split("\n", wanted);
    LockHolder lock(&ourLock, LOCK_SITE);
    // Rows still in the streams would come back after the clear.
    ThreadInfo::forEachLiveThread([&](ThreadInfo* thread) { thread->playEvents(lock); });
    if (ourThreadUnknown != nullptr) ourThreadUnknown->playEvents(lock);
    DB* db = KZT_DB();
    ZVector<int> ids;
    for (int id = FIRST_EVENT_TABLE_ID; id <= LAST_EVENT_TABLE_ID; id++) {
        EventTable* table = db->getEventTable(id);
        if (table != nullptr && wanted.contains(table->getName())) ids.push(id);
    }
    EventTableRows::clearTables(lock, db, ids);
}

extern "C" {

JNIEXPORT jint JNICALL NATIVE(createEventTable)(JNIEnv* env, jclass, jstring owner, jstring description) {
    KZT_NATIVE_BEGIN
    return createEventTable(env, owner, description);
    KZT_NATIVE_END(env, EventTableRows::CREATE_OUT_OF_MEMORY)
}

JNIEXPORT jstring JNICALL NATIVE(getEventTableDescription)(JNIEnv* env, jclass, jint tableId) {
    KZT_NATIVE_BEGIN
    return getEventTableDescription(env, tableId);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jint JNICALL NATIVE(createEventTableRow)(JNIEnv* env, jclass, jint tableId) {
    KZT_NATIVE_BEGIN
    return PlayerEventAdding::createTableRow(env, tableId);
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT void JNICALL NATIVE(closeEventTableRow)(JNIEnv* env, jclass, jint tableId, jint eventId, jboolean noEndTime,
                                                  jstring exceptionText) {
    KZT_NATIVE_BEGIN
    PlayerEventAdding::closeTableRowWithJavaText(env, tableId, eventId, noEndTime, exceptionText);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(deleteEventTableRow)(JNIEnv* env, jclass, jint tableId, jint eventId) {
    KZT_NATIVE_BEGIN
    PlayerEventAdding::deleteTableRow(env, tableId, eventId);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(setEventTableInt32Column)(JNIEnv* env, jclass, jint tableId, jint eventId, jint column,
                                                        jint value) {
    KZT_NATIVE_BEGIN
    PlayerEventAdding::setInt32Column(env, tableId, eventId, column, value);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(setEventTableLongColumn)(JNIEnv* env, jclass, jint tableId, jint eventId, jint column,
                                                       jlong value) {
    KZT_NATIVE_BEGIN
    PlayerEventAdding::setLongColumn(env, tableId, eventId, column, value);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(setEventTableStringColumn)(JNIEnv* env, jclass, jint tableId, jint eventId, jint column,
                                                         jstring value) {
    KZT_NATIVE_BEGIN
    PlayerEventAdding::setStringColumnFromJava(env, tableId, eventId, column, value);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(setMinimumRecordedLastingEventTime)(JNIEnv* env, jclass, jint tableId, jint ms) {
    KZT_NATIVE_BEGIN
    setMinimumRecordedLastingEventTime(tableId, ms);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jint JNICALL NATIVE(getStrID)(JNIEnv* env, jclass, jstring text) {
    KZT_NATIVE_BEGIN
    return getStrID(env, text);
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT jstring JNICALL NATIVE(getTopEventTableNames)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    return getTopEventTableNames(env);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT void JNICALL NATIVE(clearEventTables)(JNIEnv* env, jclass, jstring names) {
    KZT_NATIVE_BEGIN
    clearEventTables(env, names);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(messageToTable)(JNIEnv* env, jclass, jstring category, jstring text, jstring detail) {
    KZT_NATIVE_BEGIN
    PlayerEventAdding::addMessage(env, takeString(env, category), takeString(env, text), takeString(env, detail));
    KZT_NATIVE_END(env, )
}

}  // extern "C"

static const JNINativeMethod ourEventTableRows[] = {
    KZT_NATIVE_ROW(createEventTable, "(Ljava/lang/String;Ljava/lang/String;)I"),
    KZT_NATIVE_ROW(getEventTableDescription, "(I)Ljava/lang/String;"),
    KZT_NATIVE_ROW(createEventTableRow, "(I)I"),
    KZT_NATIVE_ROW(closeEventTableRow, "(IIZLjava/lang/String;)V"),
    KZT_NATIVE_ROW(deleteEventTableRow, "(II)V"),
    KZT_NATIVE_ROW(setEventTableInt32Column, "(IIII)V"),
    KZT_NATIVE_ROW(setEventTableLongColumn, "(IIIJ)V"),
    KZT_NATIVE_ROW(setEventTableStringColumn, "(IIILjava/lang/String;)V"),
    KZT_NATIVE_ROW(setMinimumRecordedLastingEventTime, "(II)V"),
    KZT_NATIVE_ROW(getStrID, "(Ljava/lang/String;)I"),
    KZT_NATIVE_ROW(getTopEventTableNames, "()Ljava/lang/String;"),
    KZT_NATIVE_ROW(clearEventTables, "(Ljava/lang/String;)V"),
    KZT_NATIVE_ROW(messageToTable, "(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;)V"),
};

KZT_NATIVE_GROUP(ourEventTableNatives, ourEventTableRows);
