// The table stream: the rows of the fixed tables, selected by mask and by
// stamp, as both the snapshot file and the live view receive them. Stages
// that keep data outside the tables (event buffers, counters, mode times)
// take part as participants, so that the stream sees everything.
#pragma once

#include <jni.h>
#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/AbstractWriter.h"
#include "foundation/Progress.h"

class DB;

// What a stage does around a capture or a table stream; either part may be null.
struct SnapshotParticipant {
    // Under ourLock, before anything is written: pending data into the tables.
    void (*myBeginCapture)(const LockHolder& lock);
    // Under ourLock, when the writing is done: recording goes on.
    void (*myEndCapture)(const LockHolder& lock);
};

// Participants take part in registration order; `participant` must live on.
void registerSnapshotParticipant(const SnapshotParticipant* participant);

// Begins the capture of all participants for a scope, and ends it however
// the scope is left.
class ParticipantsCapture {
public:
    explicit ParticipantsCapture(const LockHolder& lock);
    ~ParticipantsCapture();
    ParticipantsCapture(const ParticipantsCapture&) = delete;
    ParticipantsCapture& operator=(const ParticipantsCapture&) = delete;

private:
    const LockHolder& myLock;
};

const int ALL_TABLES_MASK = (1 << 20) - 1;

// Step by step: the recording modes' properties, "kzt.uptime.ns", the
// thread names and the event table limit, then for each table of the mask in slot order the kind byte 2
// (when asked for), the slot, and the rows whose |stamp| is above the slot's
// entry of `sinceGenerations` (0 without the array).
void writeTables(const LockHolder& lock, JNIEnv* env, DB* db, AbstractWriter& writer, int tableMask,
                 int progressFrom, int progressTo, Progress* progress, const int* sinceGenerations,
                 bool withKindByte);
