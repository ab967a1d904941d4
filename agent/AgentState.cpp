#include "agent/AgentState.h"

JavaVM* ourVM = nullptr;
jvmtiEnv* ourJVMTI = nullptr;
jvmtiEnv* ourJVMTI_SnapshotTemp_Classes = nullptr;
jvmtiEnv* ourJVMTI_ClassInstanceStats = nullptr;
jvmtiEnv* ourJVMTI_MonitorProfiling = nullptr;
jvmtiEnv* ourJVMTI_Exceptions_class2classNameStrID = nullptr;
jvmtiEnv* ourJVMTI_ClassUnload_class2classNameStrID = nullptr;
jvmtiEnv* ourJVMTI_PersistentObjectIDs = nullptr;
jvmtiEnv* ourJVMTI_AllocatorMethod = nullptr;
jvmtiEnv* ourJVMTI_ClassesLoadedBeforeAttach = nullptr;

uint64_t ourCapabilities = 0x140;
uint64_t ourStatus = 0x10600;

bool ourIsIbm = false;
bool ourIsOpenJ9 = false;
bool ourIsJava9orNewer = false;
bool ourIsJava12orNewer = false;
bool ourVmInitCalled = false;
bool ourVmDeathCalled = false;

const char ourNativeMethodPrefix[] = "$$KZT$$";
ZVectorSafe<ZString>& ourProbeClassPathElements = *new ZVectorSafe<ZString>();
