#include "services/AgentState.h"

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

BitWord ourCapabilities(INITIAL_CAPABILITIES);
BitWord ourStatus(INITIAL_STATUS);

bool ourIsIbm = false;
bool ourIsOpenJ9 = false;
bool ourIsJava9orNewer = false;
bool ourIsJava12orNewer = false;
std::atomic<bool> ourVmInitCalled(false);
std::atomic<bool> ourVmDeathCalled(false);

ZVectorSafe<ZString>& ourProbeClassPathElements = *new ZVectorSafe<ZString>();
