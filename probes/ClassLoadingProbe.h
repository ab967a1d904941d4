// The built-in probe ClassLoading, which the agent handles itself, with no
// probe class: each class prepared while the probe is on is a row of the
// event table "Class Loading", and so is each of those classes unloaded.
#pragma once

#include <jni.h>
#include <jvmti.h>

#include "foundation/ZLock.h"
#include "foundation/ZString.h"

class TopProbe;

class ClassLoadingProbe {
public:
    // Registers the probe under its name, com.corvane.probes.builtin.ClassLoading,
    // with its mode from the options; once.
    static TopProbe* createTopProbeByName(const LockHolder& lock);
    static bool isProbeName(const ZString& dottedName);

    // A class prepared: its row "loaded", and a tag with its name on the
    // class unload environment, which tells of its unloading.
    static void onClassPrepare(JNIEnv* env, jclass klass);
    // The object-free event of a class tagged above; JNI is out of reach here.
    static void onClassUnload(jlong tag);
    // The rows "unloaded" of the classes gone since the last call.
    static void flushUnloadedClassesToDB(const LockHolder& lock);
};
