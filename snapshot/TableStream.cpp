#include "snapshot/TableStream.h"

#include "services/Options.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "foundation/UptimeProvider.h"
#include "recording/AllocationRecording.h"
#include "recording/CpuTracing.h"
#include "recording/Monitors.h"

static ZVector<const SnapshotParticipant*, 8>& participants() {
    static ZVector<const SnapshotParticipant*, 8>* list = new ZVector<const SnapshotParticipant*, 8>();
    return *list;
}

void registerSnapshotParticipant(const SnapshotParticipant* participant) {
    participants().push(participant);
}

ParticipantsCapture::ParticipantsCapture(const LockHolder& lock) : myLock(lock) {
    for (const SnapshotParticipant* participant : participants()) {
        if (participant->myBeginCapture != nullptr) participant->myBeginCapture(lock);
    }
}

ParticipantsCapture::~ParticipantsCapture() {
    for (const SnapshotParticipant* participant : participants()) {
        if (participant->myEndCapture != nullptr) participant->myEndCapture(myLock);
    }
}

// Newline-separated names of the tables without a master whose row count
// reaches `limit`.
static ZString getTopEventTableNames(DB* db, int limit) {
    ZString names;
    for (int id = FIRST_EVENT_TABLE_ID; id <= LAST_EVENT_TABLE_ID; id++) {
        EventTable* table = db->getEventTable(id);
        if (table == nullptr || db->getEventTable(table->getMasterTableId()) != nullptr) continue;
        if (limit >= 0 && table->getRowCount() < limit) continue;
        if (!names.isEmpty()) names.appendChar('\n');
        names.append(table->getName());
    }
    return names;
}

void writeTables(const LockHolder& lock, JNIEnv* env, DB* db, AbstractWriter& writer, int tableMask,
                 int progressFrom, int progressTo, Progress* progress, const int* sinceGenerations,
                 bool withKindByte) {
    CpuTracing::updateThreadNamesWhenForced(env, tableMask);
    AllocationRecording::flushCollectedObjectAges(lock);
    CpuTracing::setProfilingTimeProperties(lock, tableMask);
    AllocationRecording::setRecordingTimeProperties(lock);
    Monitors::setRecordingTimeProperties(lock, tableMask);
    db->setLongProperty(lock, "kzt.last.cpu.profiling.mode", ourLastCpuProfilingMode);
    db->setLongProperty(lock, "kzt.last.allocation.recording.mode", ourLastAllocationRecordingMode);
    db->setLongProperty(lock, "kzt.uptime.ns", ourUptimeProvider.getUptimeNs());
    CpuTracing::applyThreadNamesToDB(lock);
    int limit = ourOptions.getProbeTableLengthLimit();
    db->setProperty(lock, "kzt.full.top.table.names", StringPool::getStrID(lock, getTopEventTableNames(db, limit)));
    db->setProperty(lock, "kzt.event.table.limit", limit);

    int tableCount = 0;
    for (int slot = 0; slot < FIXED_TABLE_COUNT; slot++) {
        if ((tableMask & (1 << slot)) != 0) tableCount++;
    }
    int share = tableCount > 0 ? (progressTo - progressFrom) / tableCount : 0;
    int from = progressFrom;
    for (int slot = 0; slot < FIXED_TABLE_COUNT; slot++) {
        if ((tableMask & (1 << slot)) == 0) continue;
        if (withKindByte) writer.writeByte(2);
        writer.writeInt(slot);
        int since = sinceGenerations != nullptr ? sinceGenerations[slot] : 0;
        db->getTable(slot)->writeTable(writer, since, from, from + share, progress);
        from += share;
    }
}
