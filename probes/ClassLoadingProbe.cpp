#include "probes/ClassLoadingProbe.h"

#include "db/SignatureNames.h"
#include "foundation/SynchronizedQueue.h"
#include "probes/Probes.h"
#include "probes/TopProbe.h"
#include "recording/PlayerEventAdding.h"
#include "recording/TableWrapper.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

static TableWrapper ourTable("Class Loading\n5\nuptime_ns\n1\nthread\n0\nframe\n0\nClass\n4\nLoaded or Unloaded\n2\n",
                             "warning: failed to create Class Loading probe");
static const int CLASS_COLUMN = 3;
static const int LOADED_COLUMN = 4;

static TopProbe* ourTopProbe = nullptr;
// Names of unloaded classes, from the object-free event to the next flush.
static SynchronizedQueue<ZString*>& ourUnloadedClasses = *new SynchronizedQueue<ZString*>();

static ZString probeName() {
    return ZString(BUILTIN_PROBE_PACKAGE) + "ClassLoading";
}

bool ClassLoadingProbe::isProbeName(const ZString& dottedName) {
    return dottedName.equals(probeName());
}

TopProbe* ClassLoadingProbe::createTopProbeByName(const LockHolder&) {
    if (ourTopProbe == nullptr) {
        ZString name = probeName();
        ourTopProbe = new TopProbe(name, ourProbe2ActivityMode.get(name), true);
        Probes::ourTopProbes.push(ourTopProbe);
    }
    return ourTopProbe;
}

// Takes `name`.
static void addRow(JNIEnv* env, int table, ZString* name, const char* what) {
    int row = PlayerEventAdding::createTableRow(env, table);
    if (row == 0) {
        delete name;
        return;
    }
    PlayerEventAdding::setStringColumn(env, table, row, CLASS_COLUMN, name);
    PlayerEventAdding::setStringColumn(env, table, row, LOADED_COLUMN, new ZString(what));
}

void ClassLoadingProbe::onClassPrepare(JNIEnv* env, jclass klass) {
    TopProbe* top = ourTopProbe;
    if (top == nullptr || top->isOff()) return;
    jvmtiPhase phase = JVMTI_PHASE_DEAD;
    if (ourJVMTI->GetPhase(&phase) != JVMTI_ERROR_NONE) return;
    if (phase != JVMTI_PHASE_START && phase != JVMTI_PHASE_LIVE) return;
    int table = ourTable.getId();
    if (table <= 0) return;
    ZString name = convertClassSignatureToFullName(getClassNameJvmti(klass, __FILE__).c_str());
    addRow(env, table, new ZString(name), "loaded");
    jvmtiEnv* tags = ourJVMTI_ClassUnload_class2classNameStrID;
    if (tags == nullptr) return;
    ZString* tag = new ZString(name);
    if (tags->SetTag(klass, (jlong)(intptr_t)tag) != JVMTI_ERROR_NONE) delete tag;
}

void ClassLoadingProbe::onClassUnload(jlong tag) {
    if (tag != 0) ourUnloadedClasses.push((ZString*)(intptr_t)tag);
}

void ClassLoadingProbe::flushUnloadedClassesToDB(const LockHolder&) {
    ZVectorSafe<ZString*> names;
    ourUnloadedClasses.popAll(&names);
    if (names.isEmpty()) return;
    int table = ourTable.getId();
    // No JNI environment: the rows are the unknown thread's.
    for (ZString* name : names) {
        if (table > 0) addRow(nullptr, table, name, "unloaded");
        else delete name;
    }
}
