// The classes the JVM has loaded, picked by name for RetransformClasses.
#pragma once

#include <jni.h>

#include "db/SignatureNames.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"

// Local references of the classes chosen, with their dotted names.
struct ChosenClasses {
    ZVector<jclass, 10> classes;
    ZVectorSafe<ZString> names;

    void release(JNIEnv* env) {
        for (int i = 0; i < classes.getSize(); i++) env->DeleteLocalRef(classes[i]);
        classes.clear();
        names.clear();
    }
};

// Keeps the loaded classes for which `choose(klass, dottedName)` holds and
// drops the references of the others. The number of classes loaded.
template <typename Choose>
int chooseLoadedClasses(JNIEnv* env, ChosenClasses& chosen, Choose choose) {
    jint count = 0;
    JvmtiMemory<jclass> loaded;
    check_JVMTI_error(ourJVMTI->GetLoadedClasses(&count, loaded.out()));
    for (int i = 0; i < count; i++) {
        jclass klass = loaded.get()[i];
        ZString name = convertClassSignatureToFullName(getClassNameJvmti(klass, __FILE__).c_str());
        if (choose(klass, name)) {
            chosen.classes.push(klass);
            chosen.names.push(name);
        } else {
            env->DeleteLocalRef(klass);
        }
    }
    return count;
}
