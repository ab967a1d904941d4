// The probes the agent knows, what the class load hook asks of them, and the
// creation of probes from class bytes and class paths. The registry lives as
// long as the process; it changes only under ourLock, and the hook reads it
// under ourLock too.
#pragma once

#include <jni.h>

#include "foundation/ZLock.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"
#include "probes/ProbeCreationResult.h"
#include "probes/ProbeDescriptor.h"
#include "probes/TopProbe.h"
#include "services/Options.h"

class ClassFile;
class ClassNameFilter;

class Probes {
public:
    static ZVector<TopProbe*>& ourTopProbes;
    // Registered descriptors, in order of registration.
    static ZVector<ProbeDescriptor*>& ourProbeDescriptors;
    // Dotted name prefixes that only patterns naming them reach, and the
    // exceptions from them.
    static ZVectorSafe<ZString>& ourIgnoredPrefixes;
    static ZVectorSafe<ZString>& ourIncludedPrefixes;
    // Methods that no probe instruments; null when there is no filter.
    static ClassNameFilter* ourBCIFilter;

    // ---- creation ----

    // Compiles one class into `result`: a descriptor with `status`, error
    // lines, or nothing for a class that is no probe. `className`, when
    // given, receives the class's internal name.
    static void createProbeDescriptor(const ZVector<unsigned char>* bytes, PROBE_STATUS status,
                                      ProbeCreationResult* result, ZString* className);
    // Finds the classes of the dotted `names` (with their inner classes) on
    // the probe class path, directories and archives, and compiles them.
    static void createProbeDescriptors(const ZVectorSafe<ZString>& names, PROBE_STATUS status,
                                       ProbeCreationResult& result);
    static TopProbe* findOrCreateTopProbe(const ZString& className);
    // Moves the new descriptors into the registry: all of them, or none when
    // the result has an error or a class is registered already.
    static void addProbes(ProbeCreationResult& result);
    // The probes named in ourProbe2ActivityMode, from the probe class path;
    // at start, or at attach when `attaching`. Failures are logged only.
    static void createProbesAtStart(bool attaching);

    // Marks the descriptors of the class `name` and of its inner classes as
    // removed, or deletes those that never touched a class; their dotted
    // names go to `removedNames`. True when classes must be retransformed.
    static bool removeProbes(const LockHolder& lock, const ZString& name, ZVectorSafe<ZString>& removedNames);
    // Names of the top probes with the mode that have descriptors or are native.
    static void getTopProbeClasses(const LockHolder& lock, ZVectorSafe<ZString>& names, PROBE_ACTIVITY_MODE mode);
    static TopProbe* findTopProbe(const LockHolder& lock, const ZString& name);
    // Stores the modes that differ and retransforms those probes' own
    // classes, whose callbacks the hook empties or restores. Error text or empty.
    static ZString changeProbeActivityModes(JNIEnv* env, const ZVectorSafe<ZString>& names, const ZVector<int>& modes);
    static void retransformProbes(JNIEnv* env, const ZVectorSafe<ZString>& probeClassNames);
    // Retransforms the classes of the probes in mode auto, whose callbacks
    // come and go with CPU profiling.
    static void retransformAutoProbes(JNIEnv* env);
    // Retransforms the loaded classes that new or removed descriptors
    // concern, after settling the statuses. Takes ourLock itself.
    static void retransformClassesForChangedProbes(JNIEnv* env, const char* reason);

    // ---- what the class load hook asks ----

    // Whether a dotted class may be instrumented for a class pattern.
    static bool isProbeApplicable(const ZString& className, const ZString& classPattern);
    // Status bit 4 set, and not call counting (bits 0x1000 and 4 without 8).
    static bool isModeAutoProbesActive();
    static bool isDisabledProbeClass(const LockHolder& lock, const ZString& internalName);
    static bool isAnyProbeApplicable(const LockHolder& lock, const ZString& internalName, const ZString& fullName);
    static bool applyProbes(const LockHolder& lock, ClassFile* classFile, const ZString& fullName, bool disabledProbe);
    static bool isFilteredMethod(const ZString& className, const ZString& name, const ZString& parameters);

    // ---- configuration ----

    // "probe_ignored_prefixes.txt" and "bci_filter.txt" of the settings
    // folder, or their defaults; once at start.
    static void readIgnoredPrefixesAndBCIFilter();
    // Sets the prefix lists from the text of "probe_ignored_prefixes.txt".
    static void setIgnoredPrefixes(const ZString& text);
};
