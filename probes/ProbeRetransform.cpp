// Keeping the JVM's classes in step with the registry: removal, mode changes,
// and the two retransformations that follow them. RetransformClasses
// re-enters the class load hook, which takes ourLock: the registry is
// changed under the lock, the classes are handed back without it.
#include "db/SignatureNames.h"
#include "instrumentation/Instrumentation.h"
#include "instrumentation/LoadedClasses.h"
#include "probes/Probes.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

// "/" and "." count as equal.
static ZString dotted(const ZString& name) {
    return name.replaceAll("/", ".");
}

bool Probes::removeProbes(const LockHolder& lock, const ZString& name, ZVectorSafe<ZString>& removedNames) {
    ZString wanted = dotted(name);
    bool retransform = false;
    for (int i = 0; i < ourProbeDescriptors.getSize();) {
        ProbeDescriptor* descriptor = ourProbeDescriptors[i];
        if (descriptor == nullptr || !dotted(descriptor->getClassSignature()).startsWith(wanted) ||
            descriptor->getStatus() == PROBE_STATUS_REMOVED) {
            i++;
            continue;
        }
        removedNames.push(dotted(descriptor->getClassSignature()));
        if (descriptor->getStatus() == PROBE_STATUS_NEW) {
            // It never touched a class: nothing to undo.
            ourProbeDescriptors.remove(i);
            delete descriptor;
            continue;
        }
        descriptor->setStatus(PROBE_STATUS_REMOVED);
        retransform = true;
        i++;
    }
    return retransform;
}

void Probes::getTopProbeClasses(const LockHolder& lock, ZVectorSafe<ZString>& names, PROBE_ACTIVITY_MODE mode) {
    for (TopProbe* top : ourTopProbes) {
        if (top->getActivityMode() == mode && (top->isNativeProbe() || !top->getDescriptors().isEmpty())) {
            names.push(top->getName());
        }
    }
}

TopProbe* Probes::findTopProbe(const LockHolder& lock, const ZString& name) {
    ZString wanted = dotted(name);
    for (TopProbe* top : ourTopProbes) {
        if (top->getName().equals(wanted)) return top;
    }
    return nullptr;
}

ZString Probes::changeProbeActivityModes(JNIEnv* env, const ZVectorSafe<ZString>& names, const ZVector<int>& modes) {
    if (names.getSize() != modes.getSize()) return ZString("names and modes differ in length");
    if (names.isEmpty()) return ZString();
    ZVectorSafe<ZString> probeClasses;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        for (int i = 0; i < names.getSize(); i++) {
            TopProbe* top = findTopProbe(lock, names[i]);
            if (top == nullptr || top->getActivityMode() == (PROBE_ACTIVITY_MODE)modes[i]) continue;
            top->setActivityMode((PROBE_ACTIVITY_MODE)modes[i]);
            for (ProbeDescriptor* descriptor : top->getDescriptors()) {
                probeClasses.push(dotted(descriptor->getClassSignature()));
            }
        }
    }
    if (probeClasses.isEmpty()) {
        ZString text("Changing probe activity modes: nothing has changed:");
        for (const ZString& name : names) text += ZString(" ") + name;
        Logger::message(text);
        return ZString();
    }
    retransformProbes(env, probeClasses);
    return ZString();
}

void Probes::retransformProbes(JNIEnv* env, const ZVectorSafe<ZString>& probeClassNames) {
    ChosenClasses chosen;
    int loaded = chooseLoadedClasses(env, chosen, [&](jclass, const ZString& name) {
        return probeClassNames.contains(name);
    });
    ZString names;
    for (const ZString& name : probeClassNames) {
        if (!names.isEmpty()) names += ", ";
        names += name;
    }
    Logger::message(ZString("retransformProbes: loaded classes: ") + ZString::fromLong(loaded) +
                    " probeClassNames: " + names);
    Logger::message(ZString("Probe classes to retransform: ") + ZString::fromLong(chosen.classes.getSize()));
    if (chosen.classes.isEmpty()) return;
    jvmtiError error = ourJVMTI->RetransformClasses(chosen.classes.getSize(), chosen.classes.getElements());
    if (error != JVMTI_ERROR_NONE) {
        Logger::message(ZString("Probe classes retransform failed: ") + getJvmtiErrorName(ourJVMTI, error));
        cleanupAfterRetransformClassesFailure(env);
    } else {
        Logger::message("Probe classes retransform completed");
    }
    chosen.release(env);
}

void Probes::retransformAutoProbes(JNIEnv* env) {
    ZVectorSafe<ZString> probeClasses;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        for (TopProbe* top : ourTopProbes) {
            if (top->getActivityMode() != PROBE_ACTIVITY_MODE_AUTO) continue;
            for (ProbeDescriptor* descriptor : top->getDescriptors()) {
                probeClasses.push(dotted(descriptor->getClassSignature()));
            }
        }
    }
    if (!probeClasses.isEmpty()) retransformProbes(env, probeClasses);
}

// Subclass questions about loaded classes, answered by the runtime's
// ClassTree without loading anything.
class ClassTreeQuery {
public:
    ClassTreeQuery(JNIEnv* env) : myEnv(env), myTree(nullptr), myIsInstanceOf(nullptr) {}
    ~ClassTreeQuery() {
        if (myTree != nullptr) myEnv->DeleteLocalRef(myTree);
    }
    void create() {
        jclass treeClass = findClass(myEnv, "com/corvane/runtime/ClassTree");
        jmethodID constructor = myEnv->GetMethodID(treeClass, "<init>", "()V");
        myAddClass = myEnv->GetMethodID(treeClass, "addClass", "(Ljava/lang/Class;)V");
        myIsInstanceOf = myEnv->GetMethodID(treeClass, "isInstanceOf", "(Ljava/lang/Class;Ljava/lang/String;)Z");
        assertJni(myEnv);
        myTree = myEnv->NewObject(treeClass, constructor);
        myEnv->DeleteLocalRef(treeClass);
        assertJni(myEnv);
    }
    bool isCreated() const { return myTree != nullptr; }
    void add(jclass klass) {
        myEnv->CallVoidMethod(myTree, myAddClass, klass);
        assertJni(myEnv);
    }
    bool isInstanceOf(jclass klass, const ZString& name) {
        jstring text = newJavaString(myEnv, dotted(name));
        bool result = myEnv->CallBooleanMethod(myTree, myIsInstanceOf, klass, text);
        myEnv->DeleteLocalRef(text);
        assertJni(myEnv);
        return result;
    }

private:
    JNIEnv* myEnv;
    jobject myTree;
    jmethodID myAddClass = nullptr;
    jmethodID myIsInstanceOf;
};

// Whether the descriptor wants the class: a positive pattern that applies,
// and the class derived from a name of the retransform list if there is one.
static bool isWantedBy(ProbeDescriptor* descriptor, jclass klass, const ZString& name, ClassTreeQuery& tree) {
    for (int p = 0; p < descriptor->getPatternCount(); p++) {
        if (descriptor->isNegative(p) || !Probes::isProbeApplicable(name, descriptor->getClassPattern(p))) continue;
        ZVectorSafe<ZString>& list = descriptor->getRetransformList();
        if (list.isEmpty()) return true;
        for (const ZString& base : list) {
            if (tree.isInstanceOf(klass, base)) return true;
        }
    }
    return false;
}

void Probes::retransformClassesForChangedProbes(JNIEnv* env, const char* reason) {
    Logger::message(ZString("retransformClassesForChangedProbes: ") + reason);
    ChosenClasses chosen;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        ClassTreeQuery tree(env);
        ZVector<ProbeDescriptor*> changed;
        for (ProbeDescriptor* descriptor : ourProbeDescriptors) {
            if (descriptor != nullptr && descriptor->getStatus() != PROBE_STATUS_SETTLED &&
                !descriptor->isCpuTracingSupport() && descriptor->getPatternCount() > 0) {
                changed.push(descriptor);
            }
        }
        if (!ourProbeDescriptors.isEmpty()) tree.create();
        ZVectorSafe<ZString> log;
        chooseLoadedClasses(env, chosen, [&](jclass klass, const ZString& name) {
            if (tree.isCreated()) tree.add(klass);
            for (ProbeDescriptor* descriptor : changed) {
                if (!isWantedBy(descriptor, klass, name, tree)) continue;
                log.push(name + " <<< " + descriptor->getTopProbe()->getName());
                return !shouldNeverRetransform(name);
            }
            return false;
        });
        for (const ZString& line : log) Logger::message(line);
        Logger::message(ZString("Classes to retransform: ") + ZString::fromLong(chosen.classes.getSize()));
        // The hook must see the new state when the classes come back.
        for (int i = 0; i < ourProbeDescriptors.getSize();) {
            ProbeDescriptor* descriptor = ourProbeDescriptors[i];
            if (descriptor != nullptr && descriptor->getStatus() == PROBE_STATUS_REMOVED) {
                ourProbeDescriptors.remove(i);
                delete descriptor;
                continue;
            }
            if (descriptor != nullptr) descriptor->setStatus(PROBE_STATUS_SETTLED);
            i++;
        }
    }
    if (chosen.classes.isEmpty()) return;
    jvmtiError error = ourJVMTI->RetransformClasses(chosen.classes.getSize(), chosen.classes.getElements());
    if (error != JVMTI_ERROR_NONE) {
        Logger::message(ZString("Class retransform failed: ") + getJvmtiErrorName(ourJVMTI, error) +
                        " error=" + ZString::fromLong(error));
        cleanupAfterRetransformClassesFailure(env);
    } else {
        Logger::message("Class retransform completed (2)");
    }
    chosen.release(env);
}
