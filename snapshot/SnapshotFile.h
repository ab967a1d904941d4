// The snapshot file: magic, revision and creation time; a header block with
// the properties and the event table layouts; a tables block; in a memory
// snapshot the heap after them. Everything is most significant byte first,
// with 4-byte object ids.
#pragma once

#include <jni.h>
#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/ZString.h"
#include "services/SharedConstants.h"
#include "snapshot/InstanceCounting.h"
#include "snapshot/SnapshotFormat.h"
#include "snapshot/SnapshotWriter.h"

// The flag bits of "snapshot_flags" are the SNAPSHOT_FLAG_ constants of
// services/SharedConstants.def.

extern const char SNAPSHOT_MAGIC[];
const int SNAPSHOT_MAGIC_SIZE = 19;
const int SNAPSHOT_FORMAT_REVISION = 4;

class SnapshotFile {
public:
    // The caller's flags as the file records them.
    static int64_t formSnapshotFlags(int64_t flags);
    // Magic, revision, time and the header block.
    static void writeHeader(const LockHolder& lock, SnapshotWriter& writer, int64_t flags, int64_t creationTimeMs);
    // The whole file on `fd`, the heap too when the flags ask for a memory
    // snapshot; an error text, or empty. `instanceCounting` may be null.
    static ZString writeSnapshotNew(const LockHolder& lock, JNIEnv* env, int fd, int progressFd, const ZString& path,
                                    int64_t flags, InstanceCounting* instanceCounting);
    // Takes ourLock, suspends the other threads, brings every participant's
    // data in, writes, and resumes. An error text (the file is then deleted
    // unless "_keep_broken"), or empty.
    static ZString captureSnapshotJVMTI(JNIEnv* env, const ZString& path, int progressFd, int64_t flags);
    // The row of the "snapshot" table with that file name, or 0.
    static int findSnapshot(const LockHolder& lock, const ZString& name);
};
