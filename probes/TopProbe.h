// One probe as the user names it: a top-level class with the descriptors of
// the class and of its inner classes, and its activity mode.
#pragma once

#include "foundation/ZString.h"
#include "foundation/ZVector.h"
#include "services/Options.h"

class ProbeDescriptor;

// One top-level probe class with the descriptors of the class and of its
// inner classes. Its activity mode outlives them, so that it survives a
// removal and a new registration.
class TopProbe {
public:
    TopProbe(const ZString& name, PROBE_ACTIVITY_MODE mode, bool nativeProbe)
        : myName(name), myActivityMode(mode), myNativeProbe(nativeProbe) {}

    // Dotted class name, cut at the first "$".
    const ZString& getName() const { return myName; }
    PROBE_ACTIVITY_MODE getActivityMode() const { return myActivityMode; }
    void setActivityMode(PROBE_ACTIVITY_MODE mode) { myActivityMode = mode; }
    ZVector<ProbeDescriptor*>& getDescriptors() { return myDescriptors; }
    // Handled by the agent itself, with no class.
    bool isNativeProbe() const { return myNativeProbe; }
    // Mode off, or auto while automatic probes are inactive.
    bool isOff() const;
    // Automatic probes are active while a CPU mode other than call counting runs.
    static bool areAutoProbesActive();

private:
    ZString myName;
    PROBE_ACTIVITY_MODE myActivityMode;
    ZVector<ProbeDescriptor*> myDescriptors;
    bool myNativeProbe;
};
