// Where the load sequence hands over to the database and the recording
// modes. Each joint does what its stage offers.
#include "agent/AgentLoad.h"
#include "agent/Logger.h"
#include "foundation/ZLock.h"

void createDatabase(int telemetryLimit) {}

void advanceGenerationOnLoad(const LockHolder& lock, const char* description) {}

int64_t getDatabaseSessionId() {
    return 0;
}

void startCpuProfilingFromOptions(JNIEnv* env, int64_t modeWord) {}

void startAllocationRecordingFromOptions(JNIEnv* env) {}

void startMonitorProfilingFromOptions(JNIEnv* env) {}

void addSnapshotInfo(const ZString& path, int64_t kind) {
    Logger::message(ZString("Snapshot written by the JVM: ") + path);
}
