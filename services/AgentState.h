// Process-wide state of the agent core: the JVM handles, the capability and
// status bit sets, and what the load routine recognised about the JVM.
#pragma once

#include <jni.h>
#include <jvmti.h>
#include <atomic>
#include <cstdint>

#include "services/SharedConstants.h"

// A word of bits that the hot paths read without a lock while mode control
// changes it under ourLock. Reads take acquire order and changes release
// order: a thread that sees a mode's bit also sees everything made ready for
// the mode before the bit was set. On this platform such a read is a plain load.
class BitWord {
public:
    explicit constexpr BitWord(uint64_t initial) : myBits(initial) {}
    BitWord(const BitWord&) = delete;
    BitWord& operator=(const BitWord&) = delete;

    uint64_t get() const { return myBits.load(std::memory_order_acquire); }
    bool hasAny(uint64_t bits) const { return (get() & bits) != 0; }
    void set(uint64_t bits) { myBits.store(bits, std::memory_order_release); }
    void add(uint64_t bits) { myBits.fetch_or(bits, std::memory_order_acq_rel); }
    void remove(uint64_t bits) { myBits.fetch_and(~bits, std::memory_order_acq_rel); }

private:
    std::atomic<uint64_t> myBits;
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

// The CAPABILITY_ bits of services/SharedConstants.def.
extern BitWord ourCapabilities;
// The live profiling modes: the status bits of services/SharedConstants.def.
extern BitWord ourStatus;

extern bool ourIsIbm;
extern bool ourIsOpenJ9;
extern bool ourIsJava9orNewer;
extern bool ourIsJava12orNewer;
// Set by the load sequence, read by the hot paths.
extern std::atomic<bool> ourVmInitCalled;
extern std::atomic<bool> ourVmDeathCalled;

inline bool isAttaching() { return ourCapabilities.hasAny(CAPABILITY_ATTACHED_AGENT); }

#include "foundation/ZString.h"
#include "foundation/ZVector.h"

// Every class path element the agent added: the runtime archive and the
// probe class path.
extern ZVectorSafe<ZString>& ourProbeClassPathElements;
