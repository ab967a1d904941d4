// Watches for the heap dump that the JVM itself writes on OutOfMemoryError,
// and reports the first one.
#include "agent/AgentLoad.h"
#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "db/DB.h"
#include "foundation/System.h"

static const int64_t HPROF_SNAPSHOT_KIND = 4113;
static const int POLL_PERIOD_MS = 3000;

// Waits in a raw monitor rather than a native sleep: the JVM treats a thread
// in a raw monitor wait as blocked and does not hold up its exit for it.
static void waitBlocked(int ms) {
    static jrawMonitorID monitor = nullptr;
    if (monitor == nullptr && ourJVMTI->CreateRawMonitor(OOME_DETECTOR_THREAD_NAME, &monitor) != JVMTI_ERROR_NONE) {
        monitor = nullptr;
        z_sleep_ms(ms);
        return;
    }
    ourJVMTI->RawMonitorEnter(monitor);
    ourJVMTI->RawMonitorWait(monitor, ms);
    ourJVMTI->RawMonitorExit(monitor);
}

void oome_snapshot_detector() {
    ZString path = ourOptions.getHeapDumpPath();
    if (path.isEmpty()) return;
    ZString perProcessPath = path + "/java_pid" + ZString::fromLong(z_getpid()) + ".hprof";
    int64_t pathSize = getFileSize(path.c_str());
    int64_t perProcessSize = getFileSize(perProcessPath.c_str());
    for (;;) {
        waitBlocked(POLL_PERIOD_MS);
        int64_t size = getFileSize(perProcessPath.c_str());
        if (size != -1 && size != perProcessSize) {
            addSnapshotInfo(perProcessPath, HPROF_SNAPSHOT_KIND);
            return;
        }
        size = getFileSize(path.c_str());
        if (size != -1 && size != pathSize) {
            addSnapshotInfo(path, HPROF_SNAPSHOT_KIND);
            return;
        }
    }
}

void JNICALL detector_thread_entry(jvmtiEnv* jvmti, JNIEnv* env, void* arg) {
    try {
        oome_snapshot_detector();
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
}
