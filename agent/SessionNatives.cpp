// The natives of com.corvane.runtime.Callback about this process among the
// others of the machine: its session marker, the free control ports, and
// the watch on processes that the Java half started.
#include <mutex>

#include "agent/NativeTable.h"
#include "foundation/System.h"
#include "services/JvmGlue.h"
#include "services/Options.h"
#include "session/PidChecker.h"
#include "session/SessionMarkers.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

// Processes whose end someone waits for; reported once by getExitedProcesses.
static std::mutex ourWatchedLock;
static ZVector<int>& ourWatchedPids = *new ZVector<int>();

extern "C" {

JNIEXPORT void JNICALL NATIVE(createMarker)(JNIEnv* env, jclass, jint port, jint mask) {
    KZT_NATIVE_BEGIN
    createMarker(port, mask, ourOptions.getSessionName());
    KZT_NATIVE_END(env, )
}

JNIEXPORT jintArray JNICALL NATIVE(getFreePorts)(JNIEnv* env, jclass, jint from, jint to) {
    KZT_NATIVE_BEGIN
    ZVector<int> ports;
    if (to - from < 0x10000) fillFreePorts(ports, from, to, !ourOptions.shouldSkipAdvancedPortCheck());
    return newJIntArray(env, ports);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jint JNICALL NATIVE(getProcessID)(JNIEnv* env, jclass, jlong) {
    return z_getpid();
}

JNIEXPORT void JNICALL NATIVE(registerProcessExitListener)(JNIEnv* env, jclass, jlong, jint pid) {
    KZT_NATIVE_BEGIN
    std::lock_guard<std::mutex> guard(ourWatchedLock);
    if (pid > 0 && !ourWatchedPids.contains(pid)) ourWatchedPids.push(pid);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jintArray JNICALL NATIVE(getExitedProcesses)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    PidChecker live;
    ZVector<int> exited;
    {
        std::lock_guard<std::mutex> guard(ourWatchedLock);
        for (int i = ourWatchedPids.getSize() - 1; i >= 0; i--) {
            if (!live.isKnownDead(ourWatchedPids[i])) continue;
            exited.push(ourWatchedPids[i]);
            ourWatchedPids.remove(i);
        }
    }
    return newJIntArray(env, exited);
    KZT_NATIVE_END(env, nullptr)
}

}  // extern "C"

static const JNINativeMethod ourSessionRows[] = {
    KZT_NATIVE_ROW(createMarker, "(II)V"),
    KZT_NATIVE_ROW(getExitedProcesses, "()[I"),
    KZT_NATIVE_ROW(getFreePorts, "(II)[I"),
    KZT_NATIVE_ROW(getProcessID, "(J)I"),
    KZT_NATIVE_ROW(registerProcessExitListener, "(JI)V"),
};

KZT_NATIVE_GROUP(ourSessionNatives, ourSessionRows);
