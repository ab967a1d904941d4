// The small natives of com.corvane.Natives, for a process that loaded the
// library with System.load (the profiler's tools): facts about other
// processes, session markers, and checks of user input by the same code that
// the agent runs. Exported by name; the library's JNI_OnLoad wires the
// layers first.
#include "foundation/System.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "session/PidChecker.h"
#include "session/SessionMarkers.h"
#include "session/SessionName.h"

#define NATIVE(name) Java_com_corvane_Natives_##name

static jstring nullWhenEmpty(JNIEnv* env, const ZString& text) {
    return text.isEmpty() ? nullptr : newJavaString(env, text);
}

// Big-endian, as the analysis files are written.
static bool readLongFrom(FileReader& reader, int64_t* value) {
    uint64_t result = 0;
    for (int i = 0; i < 8; i++) {
        int byte = reader.readByte();
        if (byte < 0) return false;
        result = (result << 8) | (uint64_t)byte;
    }
    *value = (int64_t)result;
    return true;
}

extern "C" {

JNIEXPORT jobjectArray JNICALL NATIVE(getCommandLineByPid)(JNIEnv* env, jclass, jint pid) {
    KZT_NATIVE_BEGIN
    ZVectorSafe<ZString> arguments;
    getCommandLineParameters(arguments, pid);
    return newStringArray(env, arguments);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jstring JNICALL NATIVE(getSessionNameByCommandLine)(JNIEnv* env, jclass, jint pid) {
    KZT_NATIVE_BEGIN
    ZVectorSafe<ZString> arguments;
    getCommandLineParameters(arguments, pid);
    return newJavaString(env, getSessionNameByCommandLine(&arguments, true));
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jstring JNICALL NATIVE(getProcessPathByPid)(JNIEnv* env, jclass, jint pid) {
    KZT_NATIVE_BEGIN
    ZString path = getExecutablePath(pid);
    if (path.isEmpty()) {
        ZVectorSafe<ZString> arguments;
        getCommandLineParameters(arguments, pid);
        if (!arguments.isEmpty()) path = arguments[0];
    }
    return nullWhenEmpty(env, path);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jintArray JNICALL NATIVE(getSpecialJavaPids)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    return newJIntArray(env, ZVector<int>());
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jboolean JNICALL NATIVE(is64BitMachine)(JNIEnv* env, jclass) {
    return is64BitMachine() ? JNI_TRUE : JNI_FALSE;
}

// A scratch parser in validation mode: nothing of the running agent changes.
JNIEXPORT jstring JNICALL NATIVE(validateStartupOptions)(JNIEnv* env, jclass, jstring text) {
    KZT_NATIVE_BEGIN
    if (text == nullptr) return newJavaString(env, "parameter is null");
    ZVectorSafe<ZString> commandLine;
    getCommandLineParameters(commandLine);
    Options scratch(commandLine);
    uint64_t capabilities = INITIAL_CAPABILITIES;
    bool showUsage = false;
    return newJavaString(env, scratch.parseOptions(createZS(env, text), &capabilities, &showUsage, false));
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jint JNICALL NATIVE(getProcessType)(JNIEnv* env, jclass, jint pid) {
    return 0;
}

JNIEXPORT jstring JNICALL NATIVE(getProcessOwner)(JNIEnv* env, jclass, jint pid) {
    KZT_NATIVE_BEGIN
    return nullWhenEmpty(env, getProcessOwnerUnix(pid));
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT void JNICALL Java_com_corvane_runtime_Callback_messageToLogFile(JNIEnv* env, jclass, jstring text);

JNIEXPORT void JNICALL NATIVE(messageToLogFile)(JNIEnv* env, jclass type, jstring text) {
    Java_com_corvane_runtime_Callback_messageToLogFile(env, type, text);
}

JNIEXPORT jboolean JNICALL NATIVE(isAdministrator)(JNIEnv* env, jclass) {
    return JNI_FALSE;
}

JNIEXPORT jboolean JNICALL NATIVE(runAsAdministratorImpl)(JNIEnv* env, jclass, jstring, jstring) {
    return JNI_FALSE;
}

JNIEXPORT jstring JNICALL NATIVE(getLogFilePath)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    return newJavaString(env, Logger::ourLogFilePath);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jlong JNICALL NATIVE(getOtherProcessCpuTimeNs)(JNIEnv* env, jclass, jint pid) {
    return -1;
}

JNIEXPORT jlong JNICALL NATIVE(getTimeNsForTracing)(JNIEnv* env, jclass) {
    return getTimeNsForTracing();
}

JNIEXPORT jstring JNICALL NATIVE(getPlatform)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    return newJavaString(env, getPresentablePlatformName());
    KZT_NATIVE_END(env, nullptr)
}

// The pids and ports of the live markers that share a bit with `mask`, as
// many as the arrays hold; the result is the number there are.
JNIEXPORT jint JNICALL NATIVE(fillMarked)(JNIEnv* env, jclass, jint mask, jintArray pids, jintArray ports) {
    KZT_NATIVE_BEGIN
    ZVector<SessionMarker> markers;
    fillMarkedSessions(mask, markers);
    jsize room = pids == nullptr ? 0 : env->GetArrayLength(pids);
    if (ports != nullptr && env->GetArrayLength(ports) < room) room = env->GetArrayLength(ports);
    for (int i = 0; i < markers.getSize() && i < room; i++) {
        jint pid = markers[i].myPid;
        jint port = markers[i].myPort;
        env->SetIntArrayRegion(pids, i, 1, &pid);
        if (ports != nullptr) env->SetIntArrayRegion(ports, i, 1, &port);
    }
    return markers.getSize();
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT jstring JNICALL NATIVE(getSessionNameFromMarker)(JNIEnv* env, jclass, jint pid) {
    KZT_NATIVE_BEGIN
    return newJavaString(env, getSessionNameFromMarker(pid));
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jint JNICALL NATIVE(getProcessID)(JNIEnv* env, jclass) {
    return z_getpid();
}

JNIEXPORT jint JNICALL NATIVE(getPid)(JNIEnv* env, jclass) {
    return z_getpid();
}

// A list that could not be read counts every pid as alive.
JNIEXPORT jboolean JNICALL NATIVE(isLivePid)(JNIEnv* env, jclass, jint pid) {
    KZT_NATIVE_BEGIN
    PidChecker live;
    return live.isEmpty() || live.contains(pid) ? JNI_TRUE : JNI_FALSE;
    KZT_NATIVE_END(env, JNI_TRUE)
}

JNIEXPORT jint JNICALL NATIVE(getFreePort)(JNIEnv* env, jclass, jint lower, jint upper) {
    KZT_NATIVE_BEGIN
    ZVector<int> ports;
    if (upper - lower < 0x10000) fillFreePorts(ports, lower, upper);
    return ports.isEmpty() ? -1 : ports[0];
    KZT_NATIVE_END(env, -1)
}

JNIEXPORT jstring JNICALL NATIVE(getDefaultTaDir)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    return newJavaString(env, "/tmp/");
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jboolean JNICALL NATIVE(matches)(JNIEnv* env, jclass, jstring text, jstring pattern) {
    KZT_NATIVE_BEGIN
    return wildcardMatchZS(createZS(env, pattern), createZS(env, text)) ? JNI_TRUE : JNI_FALSE;
    KZT_NATIVE_END(env, JNI_FALSE)
}

JNIEXPORT jlong JNICALL NATIVE(getSystemPhysicalMemorySize)(JNIEnv* env, jclass) {
    return getSystemPhysicalMemorySize();
}

JNIEXPORT jlongArray JNICALL NATIVE(readLongArrayFromFile)(JNIEnv* env, jclass, jstring jpath, jint count) {
    KZT_NATIVE_BEGIN
    ZString path = createZS(env, jpath);
    FileReader reader(path.c_str());
    if (!reader.isOpen()) {
        throwException(env, (ZString("Failed to open file: ") + path).c_str());
        return nullptr;
    }
    jlongArray result = count >= 0 ? env->NewLongArray(count) : nullptr;
    if (result == nullptr) {
        if (!env->ExceptionCheck()) throwException(env, (ZString("Read error: ") + path).c_str());
        return nullptr;
    }
    for (jint i = 0; i < count; i++) {
        int64_t value;
        if (!readLongFrom(reader, &value)) {
            throwException(env, (ZString("Read error: ") + path).c_str());
            return nullptr;
        }
        jlong element = value;
        env->SetLongArrayRegion(result, i, 1, &element);
    }
    return result;
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT void JNICALL NATIVE(retransformClass)(JNIEnv* env, jclass, jclass klass) {
    KZT_NATIVE_BEGIN
    if (ourJVMTI == nullptr) {
        throwException(env, "must run with the profiler agent");
        return;
    }
    jvmtiError error = ourJVMTI->RetransformClasses(1, &klass);
    if (error == JVMTI_ERROR_NONE) return;
    env->ExceptionClear();
    Logger::message(ZString("warning: the previous exception happened while processing ") +
                    getClassNameJvmti(klass, __FILE__));
    throwException(env, "Native exception happened - see the log");
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(createMutex)(JNIEnv* env, jclass) {}

// The registry of another platform: nothing to read or write here.
JNIEXPORT jstring JNICALL NATIVE(getWinRegStringValue)(JNIEnv* env, jclass, jint, jstring, jstring) {
    return nullptr;
}

JNIEXPORT jint JNICALL NATIVE(getWinRegIntValue)(JNIEnv* env, jclass, jint, jstring, jstring) {
    return 0;
}

JNIEXPORT jboolean JNICALL NATIVE(createWinRegKey)(JNIEnv* env, jclass, jint, jstring) {
    return JNI_FALSE;
}

JNIEXPORT jboolean JNICALL NATIVE(deleteWinRegValue)(JNIEnv* env, jclass, jint, jstring, jstring) {
    return JNI_FALSE;
}

JNIEXPORT jboolean JNICALL NATIVE(setWinRegStringValue)(JNIEnv* env, jclass, jint, jstring, jstring, jstring) {
    return JNI_FALSE;
}

JNIEXPORT jboolean JNICALL NATIVE(setWinRegIntValue)(JNIEnv* env, jclass, jint, jstring, jstring, jint) {
    return JNI_FALSE;
}

}  // extern "C"
