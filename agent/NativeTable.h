// The natives of com.corvane.runtime.Callback come in groups, one for each
// subsystem they serve, each defined next to the code of its natives. The
// wiring adds every group at start; at registration they are merged into
// one table sorted by name.
#pragma once

#include <jni.h>

struct NativeGroup {
    const JNINativeMethod* myRows;
    int myCount;
};

// Defines the group `name` from a static array of JNINativeMethod rows.
#define KZT_NATIVE_GROUP(name, rows) const NativeGroup name = {rows, (int)(sizeof(rows) / sizeof(rows[0]))}

// A row for Java_com_corvane_runtime_Callback_<name>.
#define KZT_NATIVE_ROW(name, signature) \
    { (char*)#name, (char*)signature, (void*)Java_com_corvane_runtime_Callback_##name }

// The groups.
extern const NativeGroup ourAgentCoreNatives;        // agent/CallbackNatives.cpp
extern const NativeGroup ourAllocationNatives;       // agent/AllocationNatives.cpp
extern const NativeGroup ourEntryPointNatives;       // agent/EntryPointNatives.cpp
extern const NativeGroup ourModeControlNatives;      // agent/ModeControl.cpp
extern const NativeGroup ourMonitorNatives;          // agent/MonitorNatives.cpp
extern const NativeGroup ourProbeNatives;            // agent/ProbeNatives.cpp
extern const NativeGroup ourEventTableNatives;       // agent/EventTableNatives.cpp
extern const NativeGroup ourObjectMapNatives;        // agent/ObjectMapNatives.cpp
extern const NativeGroup ourSessionNatives;          // agent/SessionNatives.cpp
extern const NativeGroup ourSnapshotNatives;         // agent/SnapshotNatives.cpp
extern const NativeGroup ourTracingNatives;          // agent/TracingNatives.cpp

// Adds a group; a group added twice counts once.
void addNativeGroup(const NativeGroup& group);
// All rows of all groups, sorted by name.
const JNINativeMethod* getAgentNativeMethods(int* count);
