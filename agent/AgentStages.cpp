// Where the load sequence hands over to the database and the recording
// modes. Each joint does what its stage offers.
#include "agent/AgentLoad.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "agent/ModeControl.h"
#include "db/DB.h"
#include "foundation/ZLock.h"
#include "recording/AllocationRecording.h"
#include "recording/Monitors.h"

void createDatabase(int telemetryLimit) {
    DBSettings settings;
    settings.myTelemetryLimit = telemetryLimit;
    settings.mySessionName = ourOptions.getSessionName();
    settings.mySnapshotNameFormat = ourOptions.getSnapshotNameFormat();
    settings.myIdeProjectName = ourOptions.getInternalOption("_ide_project_name");
    DB::createAndInitializeDB(settings);
}

void advanceGenerationOnLoad(const LockHolder& lock, const char* description) {
    Generations::advanceGeneration(lock, ZString(description));
}

int64_t getDatabaseSessionId() {
    return KZT_DB()->getSessionId();
}

// A refusal is logged by the start itself.
void startCpuProfilingFromOptions(JNIEnv* env, int64_t modeWord) {
    startCpuProfiling(env, modeWord, nullptr);
}

// A refusal is logged by the start itself.
void startAllocationRecordingFromOptions(JNIEnv* env) {
    AllocationRecording::startAllocationRecording(env, ourOptions.getAllocEach(), ourOptions.getAllocSizeLimit(),
                                                  ourOptions.getAllocationMode());
}

// A refusal is logged by the start itself.
void startMonitorProfilingFromOptions(JNIEnv* env) {
    Monitors::startMonitorProfiling(env);
}
