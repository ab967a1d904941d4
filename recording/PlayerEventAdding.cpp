#include "recording/PlayerEventAdding.h"

#include "db/DB.h"
#include "db/EventTableRows.h"
#include "foundation/UptimeProvider.h"
#include "recording/CpuTracing.h"
#include "recording/EventEncoding.h"
#include "recording/StackCapture.h"
#include "recording/TableWrapper.h"
#include "recording/ThreadInfo.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"

int PlayerEventAdding::ourMessagesTableIndex = 0;

static const char* const MESSAGES_TABLE =
    "Messages\n5\nuptime_ns\n1\nthread\n0\nCategory\n2\nText\n2\nDetail\n2\n";

static ThreadInfo* callerThread(JNIEnv* env) {
    return env != nullptr ? getThreadInfoJvmti(env, nullptr) : nullptr;
}

// Hands one event to the caller's stream, or to the unknown thread's under the lock.
static void addEvent(ThreadInfo* thread, const int32_t* event, int count) {
    if (thread != nullptr) {
        thread->addEvent(event, count, true);
        return;
    }
    LockHolder lock(&ourLock, LOCK_SITE);
    if (ourThreadUnknown != nullptr) ourThreadUnknown->addEvent(event, count, false);
}

static void addEvent(JNIEnv* env, const int32_t* event, int count) {
    addEvent(callerThread(env), event, count);
}

static int64_t ownedText(ZString* text) { return (int64_t)(intptr_t)text; }

// A Java string for the next event of the thread: in its text store when it
// fits, else a ZString of the event's own. A store spares the allocation and
// the free of each text, which cost more than the rest of the event.
static int64_t javaText(JNIEnv* env, ThreadInfo* thread, jstring text) {
    if (text == nullptr) return 0;
    if (thread != nullptr) {
        jsize length = env->GetStringLength(text);
        jsize bytes = env->GetStringUTFLength(text);
        char* stored = thread->reserveText(bytes);
        if (stored != nullptr) {
            env->GetStringUTFRegion(text, 0, length, stored);
            stored[bytes] = 0;
            return (int64_t)(intptr_t)stored | 1;
        }
    }
    return ownedText(createZSPtr(env, text));
}

static void addClose(ThreadInfo* thread, int tableId, int eventId, bool noEndTime, int64_t text) {
    int64_t end = noEndTime ? 0 : ourUptimeProvider.getUptimeNs();
    int32_t event[7] = {EVENT_TABLE_ROW_CLOSE, tableId, eventId, lowHalf(end), highHalf(end), lowHalf(text),
                        highHalf(text)};
    addEvent(thread, event, 7);
}

static void addSetString(ThreadInfo* thread, int tableId, int eventId, int column, int64_t text) {
    int32_t event[6] = {EVENT_TABLE_SET_STRING, tableId, eventId, column, lowHalf(text), highHalf(text)};
    addEvent(thread, event, 6);
}

int PlayerEventAdding::createTableRow(JNIEnv* env, int tableId) {
    DB* db = ourDB;
    EventTable* table = db != nullptr ? db->getEventTable(tableId) : nullptr;
    if (table == nullptr) return 0;
    if (EventTableRows::getTopMasterTable(db, table)->getRowCount() >= ourOptions.getProbeTableLengthLimit()) return 0;
    ThreadInfo* thread = env != nullptr ? getThreadInfoJvmti(env, nullptr) : nullptr;
    if (thread != nullptr && thread->isAgentThread() && tableId != PlayerEventAdding::ourMessagesTableIndex) return 0;
    int node = 0;
    if (table->getFrameColumn() >= 0 && thread != nullptr && ourVmInitCalled && !ourVmDeathCalled) {
        // The player knows where a traced thread stands.
        bool tracedStack = isCpuTracingActive() && thread->isStackKnown() &&
                           !ourCapabilities.hasAny(CAPABILITY_ATTACHED_AGENT);
        node = tracedStack ? -1 : thread->getStackCapture()->fillCurrentNodeJvmti_notForTracing_withOwnLine(env);
    }
    int eventId = EventTableRows::nextEventId();
    int64_t now = ourUptimeProvider.getUptimeNs();
    int32_t event[6] = {EVENT_TABLE_ROW_CREATE, tableId, eventId, lowHalf(now), highHalf(now), node};
    addEvent(env, event, 6);
    return eventId;
}

void PlayerEventAdding::closeTableRow(JNIEnv* env, int tableId, int eventId, bool noEndTime, ZString* exceptionText) {
    addClose(callerThread(env), tableId, eventId, noEndTime, ownedText(exceptionText));
}

void PlayerEventAdding::closeTableRowWithJavaText(JNIEnv* env, int tableId, int eventId, bool noEndTime,
                                                  jstring exceptionText) {
    ThreadInfo* thread = callerThread(env);
    addClose(thread, tableId, eventId, noEndTime, javaText(env, thread, exceptionText));
}

void PlayerEventAdding::deleteTableRow(JNIEnv* env, int tableId, int eventId) {
    int32_t event[3] = {EVENT_TABLE_ROW_DELETE, tableId, eventId};
    addEvent(env, event, 3);
}

void PlayerEventAdding::setInt32Column(JNIEnv* env, int tableId, int eventId, int column, int value) {
    int32_t event[5] = {EVENT_TABLE_SET_INT, tableId, eventId, column, value};
    addEvent(env, event, 5);
}

void PlayerEventAdding::setLongColumn(JNIEnv* env, int tableId, int eventId, int column, int64_t value) {
    int32_t event[6] = {EVENT_TABLE_SET_LONG, tableId, eventId, column, lowHalf(value), highHalf(value)};
    addEvent(env, event, 6);
}

void PlayerEventAdding::setStringColumn(JNIEnv* env, int tableId, int eventId, int column, ZString* value) {
    addSetString(callerThread(env), tableId, eventId, column, ownedText(value));
}

void PlayerEventAdding::setStringColumnFromJava(JNIEnv* env, int tableId, int eventId, int column, jstring value) {
    ThreadInfo* thread = callerThread(env);
    addSetString(thread, tableId, eventId, column, javaText(env, thread, value));
}

void PlayerEventAdding::addMessage(JNIEnv* env, ZString* category, ZString* text, ZString* detail) {
    static TableWrapper messages(MESSAGES_TABLE);
    if (ourMessagesTableIndex == 0) {
        int id = messages.getId();
        if (id > 0) ourMessagesTableIndex = id;
    }
    int eventId = ourMessagesTableIndex > 0 ? createTableRow(env, ourMessagesTableIndex) : 0;
    if (eventId == 0) {
        delete category;
        delete text;
        delete detail;
        return;
    }
    setStringColumn(env, ourMessagesTableIndex, eventId, 2, category);
    setStringColumn(env, ourMessagesTableIndex, eventId, 3, text);
    setStringColumn(env, ourMessagesTableIndex, eventId, 4, detail);
}

static const char* textAt(const int32_t* event, int at) {
    int64_t text = joinHalves(event[at], event[at + 1]);
    if (text == 0) return nullptr;
    if (isStoredText(text)) return (const char*)(intptr_t)(text & ~(int64_t)1);
    return ((const ZString*)(intptr_t)text)->c_str();
}

static void playCreate(const LockHolder& lock, ThreadInfo* thread, const int32_t* event) {
    int node = event[5];
    int frame = node == -1 ? thread->getCurrentFrame() : node > 0 ? thread->getFrameFromNode(lock, node) : 0;
    int threadNumber = thread == ourThreadUnknown ? 0 : thread->getTRN();
    EventTableRows::createRow(lock, ourDB, event[1], event[2], joinHalves(event[3], event[4]), frame, threadNumber);
}

static void playClose(const LockHolder& lock, ThreadInfo*, const int32_t* event) {
    EventTableRows::closeRow(lock, ourDB, event[1], event[2], joinHalves(event[3], event[4]), textAt(event, 5));
}

static void playDelete(const LockHolder& lock, ThreadInfo*, const int32_t* event) {
    EventTableRows::deleteRow(lock, ourDB, event[1], event[2]);
}

static void playSetInt(const LockHolder& lock, ThreadInfo*, const int32_t* event) {
    EventTableRows::setInt32(lock, ourDB, event[1], event[2], event[3], event[4]);
}

static void playSetLong(const LockHolder& lock, ThreadInfo*, const int32_t* event) {
    EventTableRows::setLong(lock, ourDB, event[1], event[2], event[3], joinHalves(event[4], event[5]));
}

static void playSetString(const LockHolder& lock, ThreadInfo*, const int32_t* event) {
    EventTableRows::setString(lock, ourDB, event[1], event[2], event[3], textAt(event, 4));
}

void PlayerEventAdding::installPlayers() {
    ThreadInfo::ourForeignEventPlayers[EVENT_TABLE_ROW_CREATE] = playCreate;
    ThreadInfo::ourForeignEventPlayers[EVENT_TABLE_ROW_CLOSE] = playClose;
    ThreadInfo::ourForeignEventPlayers[EVENT_TABLE_ROW_DELETE] = playDelete;
    ThreadInfo::ourForeignEventPlayers[EVENT_TABLE_SET_INT] = playSetInt;
    ThreadInfo::ourForeignEventPlayers[EVENT_TABLE_SET_LONG] = playSetLong;
    ThreadInfo::ourForeignEventPlayers[EVENT_TABLE_SET_STRING] = playSetString;
}
