// Process-wide state of the agent core: the JVM handles, the capability and
// status bit sets, and what the load routine recognised about the JVM.
#pragma once

#include <jni.h>
#include <jvmti.h>
#include <cstdint>

// ourCapabilities: a set bit of the first group means the feature may be
// used; one of the second group records why a feature is gone.
enum : uint64_t {
    CAP_TRACING = 0x40,              // tracing and call counting instrumentation possible
    CAP_ALLOC_BCI = 0x100,           // allocation instrumentation by bytecode possible
    CAP_ATTACHED = 0x400,            // came in through Agent_OnAttach
    CAP_NO_EXCEPTION_EVENTS = 0x4000,
    CAP_NO_SUSPEND = 0x8000,
    CAP_EXCEPTIONS_OFF_IBM = 0x10000,
    CAP_EXCEPTIONS_OFF_BY_OPTION = 0x20000,
    CAP_HEAP_SAMPLING = 0x40000,     // JVMTI sampled allocation events will be used
    CAP_ASYNC_SAMPLING = 0x80000,    // never set on this platform
};

// ourStatus bits: the live profiling modes.
enum : uint64_t {
    STATUS_CPU_SAMPLING_BITS = 0x4,
    STATUS_TRACING_RUNNING = 0x8,
    STATUS_STACK_TELEMETRY = 0x200,
    STATUS_EXCEPTION_TELEMETRY = 0x400,
    STATUS_TRACING_WILL_START = 0x8000,
    STATUS_DEADLOCK_DETECTION = 0x10000,
};

extern JavaVM* ourVM;
extern jvmtiEnv* ourJVMTI;
extern jvmtiEnv* ourJVMTI_SnapshotTemp_Classes;
extern jvmtiEnv* ourJVMTI_ClassInstanceStats;
extern jvmtiEnv* ourJVMTI_MonitorProfiling;
extern jvmtiEnv* ourJVMTI_Exceptions_class2classNameStrID;
extern jvmtiEnv* ourJVMTI_ClassUnload_class2classNameStrID;
extern jvmtiEnv* ourJVMTI_PersistentObjectIDs;
extern jvmtiEnv* ourJVMTI_AllocatorMethod;
extern jvmtiEnv* ourJVMTI_ClassesLoadedBeforeAttach;

extern uint64_t ourCapabilities;   // initial 0x140
extern uint64_t ourStatus;         // initial 0x10600

extern bool ourIsIbm;
extern bool ourIsOpenJ9;
extern bool ourIsJava9orNewer;
extern bool ourIsJava12orNewer;
extern bool ourVmInitCalled;
extern bool ourVmDeathCalled;

inline bool isAttaching() { return (ourCapabilities & CAP_ATTACHED) != 0; }

#include "foundation/ZString.h"
#include "foundation/ZVector.h"

// Native methods are wrapped under this prefix; a method whose name begins
// with it is invisible in stacks.
extern const char ourNativeMethodPrefix[];

// Every class path element the agent added: the runtime archive and the
// probe class path.
extern ZVectorSafe<ZString>& ourProbeClassPathElements;
