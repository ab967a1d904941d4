#include "recording/Exceptions.h"

#include <atomic>

#include "db/DB.h"
#include "db/StringPool.h"
#include "recording/ClassNameTags.h"
#include "recording/CpuTracing.h"
#include "recording/EventEncoding.h"
#include "recording/RowsByKey.h"
#include "recording/StackCapture.h"
#include "recording/ThreadInfo.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

// The key of an "exception" row: TRN, throw frame, catch frame, class string index.
static void fillExceptionRecord(ExceptionRecord& record, const RowKey& key) {
    record.myTRN = key.myTRN;
    record.myThrowFrame = key.mySecond;
    record.myCatchFrame = key.myThird;
    record.myExceptionClass = key.myFourth;
}
typedef RowsByKey<ExceptionTable, fillExceptionRecord> ExceptionRows;
static ExceptionRows& ourExceptionKey2DBIndex = *new ExceptionRows();

// Exception ids from 1, kept as the tags of the exception objects.
static std::atomic<int32_t> ourLastExceptionId(0);

static int getExceptionID(jobject exception) {
    if (exception == nullptr) return 0;
    jvmtiEnv* tags = ourJVMTI_Exceptions_class2classNameStrID;
    jlong tag = 0;
    if (tags->GetTag(exception, &tag) != JVMTI_ERROR_NONE) return 0;
    if (tag != 0) return (int)tag;
    int32_t id = ourLastExceptionId.fetch_add(1, std::memory_order_relaxed) + 1;
    check_JVMTI_error(tags->SetTag(exception, id));
    return id;
}

static bool isRecording() {
    return !ourVmDeathCalled && ourVmInitCalled;
}

void Exceptions::handleException(const NoLock&, JNIEnv* env, ThreadInfo* thread, jobject exception,
                                 bool willBeCaught) {
    if (!isRecording()) return;
    // With tracing on and the stack known, the player knows where it is thrown.
    bool playerKnowsFrame =
        isCpuTracingActive() && thread->isStackKnown() && !ourCapabilities.hasAny(CAPABILITY_ATTACHED_AGENT);
    int throwNode =
        playerKnowsFrame ? -1 : thread->getStackCapture()->fillCurrentNodeJvmti_notForTracing_withOwnLine(env);
    int classStr = getTaggedObjectClassNameStrID(ourJVMTI_Exceptions_class2classNameStrID, env, exception);
    if (willBeCaught) {
        // The catch tells where.
        thread->setPendingException(classStr, throwNode);
        return;
    }
    thread->setPendingException(-1, -1);
    int32_t event[5] = {EVENT_EXCEPTION, throwNode, 0, classStr, getExceptionID(exception)};
    CpuTracingPseudoLock::addOwnEvent(thread, event, 5);
}

void Exceptions::handleExceptionCatch(const NoLock&, JNIEnv* env, ThreadInfo* thread, jobject exception) {
    if (!isRecording() || thread->getPendingExceptionClass() == -1) return;
    int catchNode = thread->getStackCapture()->fillCurrentNodeJvmti_notForTracing_withOwnLine(env);
    int32_t event[5] = {EVENT_EXCEPTION, thread->getPendingThrowNode(), catchNode,
                        thread->getPendingExceptionClass(), getExceptionID(exception)};
    thread->setPendingException(-1, -1);
    CpuTracingPseudoLock::addOwnEvent(thread, event, 5);
}

void Exceptions::playExceptionEvent(const LockHolder& lock, ThreadInfo* thread, int throwNode, int catchNode,
                                    int classStr, int exceptionId) {
    DB* db = KZT_DB();
    int throwFrame = throwNode == -1 ? thread->getCurrentFrame() : thread->getFrameFromNode(lock, throwNode);
    if (throwFrame == -1) {
        ZString text("warning: p_e: 1: ");
        text.appendLong(throwNode).appendChar(' ').appendLong(catchNode).appendChar(' ').appendLong(classStr);
        text.appendChar(' ').appendLong(exceptionId);
        Logger::message(text);
        return;
    }
    int catchFrame = thread->getFrameFromNode(lock, catchNode);
    ExceptionTable* table = db->getExceptionTable();
    int generation = db->getCurrentGeneration();
    if (exceptionId != 0 && exceptionId == thread->getLastExceptionId()) {
        // The same object passes a further catch: it counts once, from its first throw place.
        ExceptionRecord* earlier = table->getPtr(thread->getLastExceptionRow(), true);
        earlier->myCount--;
        earlier->myStamp = generation;
        throwFrame = earlier->myThrowFrame;
    }
    if (classStr == 0) classStr = StringPool::getStrID(lock, ZString("<unknown>"));
    RowKey key = {thread->getTRN(), throwFrame, catchFrame, classStr};
    int index = ourExceptionKey2DBIndex.getOrCreate(lock, table, key, generation);
    ExceptionRecord* record = table->getPtr(index, true);
    record->myCount++;
    record->myStamp = generation;
    thread->setLastException(exceptionId, index);
}

void Exceptions::mergeExceptionUsage(const LockHolder& lock, const ZSet<int>& trns) {
    DB* db = KZT_DB();
    ourExceptionKey2DBIndex.mergeThreads(
        lock, db->getExceptionTable(), trns, ourOldestFinishedThreads->getTRN(), db->getCurrentGeneration(),
        [](ExceptionRecord& target, const ExceptionRecord& source) { target.myCount += source.myCount; });
}

void Exceptions::clearExceptions(const LockHolder& lock) {
    CpuTracingPseudoLockScope pseudoLock(lock);
    DB* db = KZT_DB();
    ThreadInfo::forEachLiveThread([&](ThreadInfo* thread) {
        thread->playEvents(lock);
        // A rethrow after the clear counts on its own.
        thread->setLastException(0, 0);
    });
    ourExceptionKey2DBIndex.clear(lock);
    db->getExceptionTable()->clearTable();
    db->markTableCleared(TABLE_EXCEPTION);
}

void Exceptions::resetForTests() {
    LockHolder lock(&ourLock, LOCK_SITE);
    ourExceptionKey2DBIndex.clear(lock);
    ourLastExceptionId = 0;
}
