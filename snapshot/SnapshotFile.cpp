#include "snapshot/SnapshotFile.h"

#include <unistd.h>

#include <ctime>

#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "foundation/System.h"
#include "snapshot/HeapCapture.h"
#include "snapshot/TableStream.h"

const char SNAPSHOT_MAGIC[] = "CORVANE_FILE_60000";
static const char* const PRODUCT_VERSION = "Corvane Java Profiler 2019.8-b109";
static const char* const PRODUCT_ADDRESS = "https://github.com/corvane/corvane";

int64_t SnapshotFile::formSnapshotFlags(int64_t flags) {
    flags |= SNAPSHOT_FLAG_ALWAYS;
    flags |= isAttaching() ? SNAPSHOT_FLAG_ATTACHED : SNAPSHOT_FLAG_STARTED_WITH_JVM;
    return flags;
}

static void writeProperty(SnapshotWriter& writer, const char* key, const ZString& value) {
    writer.writeString(key);
    writer.writeString(value);
}

void SnapshotFile::writeHeader(const LockHolder& lock, SnapshotWriter& writer, int64_t flags,
                               int64_t creationTimeMs) {
    DB* db = KZT_DB();
    writer.writeRaw(SNAPSHOT_MAGIC, SNAPSHOT_MAGIC_SIZE);
    writer.writeInt(SNAPSHOT_FORMAT_REVISION);
    writer.writeLong(creationTimeMs);

    writer.beginTag(SNAPSHOT_TAG_BLOCK);
    writer.writeByte(SNAPSHOT_ITEM_PROPERTIES);
    writer.writeInt(11);
    writeProperty(writer, "header", ZString("Corvane Java Profiler snapshot, ") + PRODUCT_ADDRESS + "\n");
    writeProperty(writer, "snapshot_version", ZString("90"));
    writeProperty(writer, "created_by_version", ZString(PRODUCT_VERSION));
    writeProperty(writer, "agent_version", ZString(PRODUCT_VERSION));
    writeProperty(writer, "platform", ZString(getPresentablePlatformName()));
    writeProperty(writer, "session_id", ZString::fromLong(db->getSessionId()));
    writeProperty(writer, "session_name", db->getSessionName());
    writeProperty(writer, "snapshot_flags", ZString::fromLong(formSnapshotFlags(flags)));
    writeProperty(writer, "creation_time_ms", ZString::fromLong(creationTimeMs));
    writeProperty(writer, "sizeof_pointer", ZString("8"));
    // Patched once the heap pass knows the count; 0 without a heap.
    writer.prepareOIDCountProperty();
    for (int id = FIRST_EVENT_TABLE_ID; id <= LAST_EVENT_TABLE_ID; id++) {
        EventTable* table = db->getEventTable(id);
        if (table == nullptr) continue;
        writer.writeByte(SNAPSHOT_ITEM_EVENT_TABLE);
        writer.writeInt(id);
        writer.writeString(table->getDescription());
    }
    writer.endTag();
}

ZString SnapshotFile::writeSnapshotNew(const LockHolder& lock, JNIEnv* env, int fd, int progressFd,
                                       const ZString& path, int64_t flags, InstanceCounting* instanceCounting) {
    Logger::messageWithStats(ZString("WSN: starting ") + path);
    DB* db = KZT_DB();
    if ((flags & SNAPSHOT_FLAG_MEMORY) != 0) HeapCapture::internRootKinds(lock);
    Progress progress((flags & SNAPSHOT_FLAG_NO_PROGRESS) != 0 ? -1 : progressFd, ourOptions.isDebug("progress"));
    SnapshotWriter writer(fd);
    writeHeader(lock, writer, flags, (int64_t)time(nullptr) * 1000);
    if (ourOptions.isInternalOption("_dump_stack")) Logger::dumpStack("_dump_stack: write header");
    progress.updateProgressImpl(1);

    bool memory = (flags & SNAPSHOT_FLAG_MEMORY) != 0;
    if (memory && ourHeapCaptureJoint.openGeneration != nullptr) {
        Logger::messageWithStats(ZString("WSN: generation to be advanced..."));
        ourHeapCaptureJoint.openGeneration(lock, ZString("Captured snapshot ") + getFileName(path));
        Logger::messageWithStats(ZString("WSN: generation advanced"));
    }

    if (instanceCounting != nullptr) instanceCounting->updateDatabase(lock, db);
    writer.beginTag(SNAPSHOT_TAG_BLOCK);
    writeTables(lock, env, db, writer, ALL_TABLES_MASK, 10, memory ? 15 : 90, &progress, nullptr, true);
    writer.endTag();
    Logger::messageWithStats(ZString("WSN: tables written"));
    // Rows changed from now on are newer than everything in this file.
    int written = db->getCurrentGeneration();
    db->advanceGeneration();

    ZString error;
    if (memory) error = HeapCapture::writeHeap(lock, env, writer, path, progress, written);
    writer.flush();
    if (error.isEmpty()) error = writer.getError();
    StringPool::collectGarbageStrings(lock);
    progress.updateProgressImpl(99);
    Logger::messageWithStats(ZString("WSN: done"));
    if (!error.isEmpty()) Logger::messageWithStats(ZString("WSN: write error: ") + error);
    return error;
}

// The other threads stand still while the tables are read; a thread that
// can't be suspended is left running.
static void suspendOtherThreads(JNIEnv* env, ZVector<jthread>& suspended) {
    if ((ourCapabilities.get() & CAPABILITY_NO_SUSPEND) != 0) return;
    jint count = 0;
    jthread* threads = nullptr;
    if (ourJVMTI->GetAllThreads(&count, &threads) != JVMTI_ERROR_NONE) return;
    jthread current = nullptr;
    ourJVMTI->GetCurrentThread(&current);
    for (int i = 0; i < count; i++) {
        if (env->IsSameObject(threads[i], current) || ourJVMTI->SuspendThread(threads[i]) != JVMTI_ERROR_NONE) {
            env->DeleteLocalRef(threads[i]);
            continue;
        }
        suspended.push(threads[i]);
    }
    if (current != nullptr) env->DeleteLocalRef(current);
    deallocate(threads);
}

// Unless "_keep_broken" keeps it for study.
static void deleteBrokenFile(const ZString& path) {
    static int keepBroken = -1;
    if (keepBroken < 0) keepBroken = ourOptions.isInternalOption("_keep_broken") ? 1 : 0;
    if (keepBroken != 0) return;
    bool deleted = z_deleteFile(path.c_str());
    Logger::message(ZString("deleting broken snapshot file ") + path + " - " + (deleted ? "OK" : "failed"));
}

static void resumeThreads(JNIEnv* env, ZVector<jthread>& suspended) {
    for (int i = suspended.getSize() - 1; i >= 0; i--) {
        ourJVMTI->ResumeThread(suspended[i]);
        env->DeleteLocalRef(suspended[i]);
    }
    suspended.clear();
}

ZString SnapshotFile::captureSnapshotJVMTI(JNIEnv* env, const ZString& path, int progressFd, int64_t flags) {
    LockHolder lock(&ourLock, LOCK_SITE);
    int fd = openFileForWrite(path.c_str());
    if (fd < 0) return ZString("Cannot open file to write snapshot");
    ZVector<jthread> suspended;
    suspendOtherThreads(env, suspended);
    ZString error;
    try {
        ParticipantsCapture capture(lock);
        InstanceCounting instanceCounting;
        bool memory = (flags & SNAPSHOT_FLAG_MEMORY) != 0;
        // A memory snapshot holds what the program can still reach, as the
        // JVM's own dumper does: garbage would be objects without references.
        if (memory) ourJVMTI->ForceGarbageCollection();
        bool counting = InstanceCounting::isWanted(memory);
        if (counting) instanceCounting.gatherClassInstanceStatistics(lock, env);
        error = writeSnapshotNew(lock, env, fd, progressFd, path, flags, counting ? &instanceCounting : nullptr);
    } catch (...) {
        // The other threads must go on whatever happened, and a file cut
        // short must not pass for a snapshot.
        resumeThreads(env, suspended);
        close(fd);
        deleteBrokenFile(path);
        throw;
    }
    resumeThreads(env, suspended);
    close(fd);
    if (!error.isEmpty()) deleteBrokenFile(path);
    return error;
}

int SnapshotFile::findSnapshot(const LockHolder& lock, const ZString& name) {
    int found = 0;
    KZT_DB()->getSnapshotTable()->forEachRecord([&](long long index, SnapshotRecord& record) {
        if (found != 0 || record.myStamp < 1) return;
        const char* text = StringPool::getString(lock, record.myFileName);
        if (text != nullptr && name.equals(text)) found = (int)index;
    });
    return found;
}
