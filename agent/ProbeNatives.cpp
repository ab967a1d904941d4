// The natives of the probes: com.corvane.runtime.Callback's, registered as a
// group, and com.corvane.Natives.validateMethodPattern of the analysis
// process, exported by name.
#include "agent/NativeTable.h"
#include "db/SignatureUtil.h"
#include "probes/Probes.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

// Null on success, else the message.
static jstring validateMethodPattern(JNIEnv* env, jstring methodPattern) {
    if (methodPattern == nullptr) return newJavaString(env, "methodPattern is null");
    ZString classPattern, methodName, signature, returnType, classAnnotation, methodAnnotation;
    ZString error = SignatureUtil::parseMethodPattern(createZS(env, methodPattern), classPattern, methodName, signature,
                                                      returnType, classAnnotation, methodAnnotation);
    return error.isEmpty() ? nullptr : newJavaString(env, error);
}

static ZString modeRefusal(int mode) {
    if (mode >= PROBE_ACTIVITY_MODE_OFF && mode <= PROBE_ACTIVITY_MODE_AUTO) return ZString();
    return ZString("unsupported probeActivityMode: ") + ZString::fromLong(mode);
}

static jstring errorsOrNull(JNIEnv* env, const ProbeCreationResult& result) {
    return result.isOK() ? nullptr : newJavaString(env, result.getAllErrors());
}

static jstring registerProbesByName(JNIEnv* env, jobjectArray classNames) {
    if (classNames == nullptr) return newJavaString(env, "names is null");
    ZVectorSafe<ZString> names;
    fillStringVectorFromJArray(env, classNames, names);
    for (int i = 0; i < names.getSize(); i++) names.set(i, expandShortProbeName(names[i]));
    ProbeCreationResult result;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        Probes::createProbeDescriptors(names, PROBE_STATUS_NEW, result);
        if (result.isOK()) Probes::addProbes(result);
    }
    if (!result.isOK()) return errorsOrNull(env, result);
    result.logRegisteredProbeClasses();
    Probes::retransformClassesForChangedProbes(env, "registerByName");
    return nullptr;
}

// The pending exception's text, cleared.
static ZString takeExceptionText(JNIEnv* env) {
    jthrowable thrown = env->ExceptionOccurred();
    env->ExceptionClear();
    if (thrown == nullptr) return ZString("unknown");
    jclass throwable = env->FindClass("java/lang/Throwable");
    jmethodID toString = throwable != nullptr ? env->GetMethodID(throwable, "toString", "()Ljava/lang/String;") : nullptr;
    jstring text = toString != nullptr ? (jstring)env->CallObjectMethod(thrown, toString) : nullptr;
    env->ExceptionClear();
    ZString result = text != nullptr ? createZS(env, text) : ZString("unknown");
    env->DeleteLocalRef(thrown);
    if (throwable != nullptr) env->DeleteLocalRef(throwable);
    if (text != nullptr) env->DeleteLocalRef(text);
    return result;
}

// Probe classes handed over as bytes: compiled, registered all or nothing,
// then defined by the boot loader, where the runtime classes they use live.
static jstring registerProbesByBytecode(JNIEnv* env, jobjectArray classes, jboolean retransform) {
    if (classes == nullptr) return newJavaString(env, "classes is null");
    int count = env->GetArrayLength(classes);
    ZVector<ZVector<unsigned char>*> bytes;
    ZVectorSafe<ZString> classNames;
    ProbeCreationResult result;
    for (int i = 0; i < count; i++) {
        jbyteArray array = (jbyteArray)env->GetObjectArrayElement(classes, i);
        ZVector<unsigned char>* copy = new ZVector<unsigned char>();
        bytes.push(copy);
        if (array != nullptr) {
            int length = env->GetArrayLength(array);
            copy->resize(length);
            env->GetByteArrayRegion(array, 0, length, (jbyte*)copy->getElements());
            env->DeleteLocalRef(array);
        }
        ZString className;
        Probes::createProbeDescriptor(copy, PROBE_STATUS_NEW, &result, &className);
        classNames.push(className);
    }
    if (result.isOK() && result.getDescriptors().isEmpty()) {
        result.addError(ZString("no probes found in classes: ") + result.getScannedClasses());
    }
    result.logMissingInnerClassesWarning();
    if (result.isOK()) {
        LockHolder lock(&ourLock, LOCK_SITE);
        Probes::addProbes(result);
    }
    if (result.isOK()) {
        for (int i = 0; i < count; i++) {
            if (classNames[i].isEmpty()) continue;
            jclass defined = env->DefineClass(classNames[i].c_str(), nullptr, (const jbyte*)bytes[i]->getElements(),
                                              bytes[i]->getSize());
            if (defined == nullptr) {
                result.addError(classNames[i].replaceAll("/", "."),
                                ZString("DefineClass exception: ") + takeExceptionText(env));
            } else {
                env->DeleteLocalRef(defined);
            }
        }
        if (!result.isOK()) {
            // Nothing of this call stays registered: the new descriptors never touched a class.
            LockHolder lock(&ourLock, LOCK_SITE);
            ZVectorSafe<ZString> removed;
            for (const ZString& name : classNames) {
                if (!name.isEmpty()) Probes::removeProbes(lock, name, removed);
            }
        }
    }
    for (ZVector<unsigned char>* copy : bytes) delete copy;
    if (!result.isOK()) return errorsOrNull(env, result);
    result.logRegisteredProbeClasses();
    if (retransform) Probes::retransformClassesForChangedProbes(env, "registerByBytecode");
    return nullptr;
}

static void unregisterProbes(JNIEnv* env, jobjectArray classNames) {
    if (classNames == nullptr) return;
    ZVectorSafe<ZString> names;
    fillStringVectorFromJArray(env, classNames, names);
    ZVectorSafe<ZString> removed;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        for (const ZString& name : names) Probes::removeProbes(lock, expandShortProbeName(name), removed);
    }
    Probes::retransformClassesForChangedProbes(env, "unregister");
    ZString text = ZString("Unregistered probe classes: ") + ZString::fromLong(removed.getSize());
    for (const ZString& name : removed) text += ZString("\n  Unregistered: ") + name;
    Logger::message(text);
}

static jstring setProbeActivityModes(JNIEnv* env, jobjectArray classNames, jintArray activityModes) {
    if (classNames == nullptr || activityModes == nullptr) return newJavaString(env, "names or modes is null");
    ZVectorSafe<ZString> names;
    fillStringVectorFromJArray(env, classNames, names);
    int count = env->GetArrayLength(activityModes);
    ZVector<int> modes;
    modes.resize(count);
    env->GetIntArrayRegion(activityModes, 0, count, (jint*)modes.getElements());
    for (int mode : modes) {
        ZString refusal = modeRefusal(mode);
        if (!refusal.isEmpty()) return newJavaString(env, refusal);
    }
    for (int i = 0; i < names.getSize(); i++) names.set(i, expandShortProbeName(names[i]));
    ZString error = Probes::changeProbeActivityModes(env, names, modes);
    return error.isEmpty() ? nullptr : newJavaString(env, error);
}

static jobjectArray getProbes(JNIEnv* env, jint mode) {
    ZString refusal = modeRefusal(mode);
    if (!refusal.isEmpty()) {
        throwException(env, refusal.c_str());
        return nullptr;
    }
    ZVectorSafe<ZString> names;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        Probes::getTopProbeClasses(lock, names, (PROBE_ACTIVITY_MODE)mode);
    }
    return newStringArray(env, names);
}

static jboolean isProbeOn(JNIEnv* env, jstring className) {
    if (className == nullptr) return JNI_FALSE;
    LockHolder lock(&ourLock, LOCK_SITE);
    TopProbe* top = Probes::findTopProbe(lock, expandShortProbeName(createZS(env, className)));
    if (top == nullptr) return JNI_FALSE;
    PROBE_ACTIVITY_MODE mode = top->getActivityMode();
    return mode == PROBE_ACTIVITY_MODE_ON || (mode == PROBE_ACTIVITY_MODE_AUTO && Probes::isModeAutoProbesActive());
}

static void addProbePath(JNIEnv* env, jstring path) {
    if (path == nullptr) return;
    LockHolder lock(&ourLock, LOCK_SITE);
    ourProbeClassPathElements.push(createZS(env, path));
}

extern "C" {

JNIEXPORT jstring JNICALL NATIVE(registerProbesByName)(JNIEnv* env, jclass, jobjectArray names) {
    KZT_NATIVE_BEGIN
    return registerProbesByName(env, names);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jstring JNICALL NATIVE(registerProbesByBytecode)(JNIEnv* env, jclass, jobjectArray classes, jboolean,
                                                           jboolean retransform) {
    KZT_NATIVE_BEGIN
    return registerProbesByBytecode(env, classes, retransform);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT void JNICALL NATIVE(unregisterProbes)(JNIEnv* env, jclass, jobjectArray names) {
    KZT_NATIVE_BEGIN
    unregisterProbes(env, names);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jstring JNICALL NATIVE(setProbeActivityModes)(JNIEnv* env, jclass, jobjectArray names, jintArray modes) {
    KZT_NATIVE_BEGIN
    return setProbeActivityModes(env, names, modes);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jobjectArray JNICALL NATIVE(getProbes)(JNIEnv* env, jclass, jint mode) {
    KZT_NATIVE_BEGIN
    return getProbes(env, mode);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jboolean JNICALL NATIVE(isProbeOn)(JNIEnv* env, jclass, jstring name) {
    KZT_NATIVE_BEGIN
    return isProbeOn(env, name);
    KZT_NATIVE_END(env, JNI_FALSE)
}

JNIEXPORT void JNICALL NATIVE(addProbePath)(JNIEnv* env, jclass, jstring path) {
    KZT_NATIVE_BEGIN
    addProbePath(env, path);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jstring JNICALL NATIVE(validateMethodPattern)(JNIEnv* env, jclass, jstring methodPattern) {
    KZT_NATIVE_BEGIN
    return validateMethodPattern(env, methodPattern);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT jstring JNICALL Java_com_corvane_Natives_validateMethodPattern(JNIEnv* env, jclass, jstring methodPattern) {
    KZT_NATIVE_BEGIN
    return validateMethodPattern(env, methodPattern);
    KZT_NATIVE_END(env, nullptr)
}

}  // extern "C"

static const JNINativeMethod ourProbeRows[] = {
    KZT_NATIVE_ROW(validateMethodPattern, "(Ljava/lang/String;)Ljava/lang/String;"),
    KZT_NATIVE_ROW(addProbePath, "(Ljava/lang/String;)V"),
    KZT_NATIVE_ROW(getProbes, "(I)[Ljava/lang/String;"),
    KZT_NATIVE_ROW(isProbeOn, "(Ljava/lang/String;)Z"),
    KZT_NATIVE_ROW(registerProbesByName, "([Ljava/lang/String;)Ljava/lang/String;"),
    KZT_NATIVE_ROW(registerProbesByBytecode, "([[BZZ)Ljava/lang/String;"),
    KZT_NATIVE_ROW(unregisterProbes, "([Ljava/lang/String;)V"),
    KZT_NATIVE_ROW(setProbeActivityModes, "([Ljava/lang/String;[I)Ljava/lang/String;"),
};

KZT_NATIVE_GROUP(ourProbeNatives, ourProbeRows);
