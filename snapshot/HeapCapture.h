// The heap part of a memory snapshot. Every object gets a dense index from
// 1 through its tag in the main JVMTI environment; the heap is then written
// in one sequential pass with empty reference slots and field blocks, and a
// second pass maps the file and patches the fields and references in, in
// whatever order the JVM reports them.
#pragma once

#include <jni.h>
#include <cstdint>

#include "foundation/Progress.h"
#include "foundation/ZLock.h"
#include "foundation/ZString.h"
#include "snapshot/SnapshotWriter.h"

// What the heap capture needs from the agent's mode control.
struct HeapCaptureJoint {
    // The generation id that new tags carry in their upper half.
    int (*getCurrentGenerationID)();
    // Opens a generation that starts with the capture; the capture's tagging
    // puts every object that has no generation yet into it.
    void (*openGeneration)(const LockHolder& lock, const ZString& description);
};
extern HeapCaptureJoint ourHeapCaptureJoint;

class HeapCapture {
public:
    // Interns the root kind names: before the tables are written, so that
    // the file's string table holds them.
    static void internRootKinds(const LockHolder& lock);
    // After the header and tables: HPROF strings and classes, the heap dump
    // segments and their end, the modified tables (rows above
    // `sinceGeneration`), the patching pass on `path`, and the class
    // references block. An error text, or empty.
    static ZString writeHeap(const LockHolder& lock, JNIEnv* env, SnapshotWriter& writer, const ZString& path,
                             Progress& progress, int sinceGeneration);
};
