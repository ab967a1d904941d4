// What the class load hook asks of the probes, for each class it sees.
#include "classfile/ClassFile.h"
#include "probes/EmptyCallbacks.h"
#include "probes/LoggerInstrumenter.h"
#include "probes/Probes.h"

// The registry grows at its end while classes load; entries are read
// through the vector's present storage and may be null.
template <typename Visit>
static void forEachDescriptor(Visit visit) {
    ZVector<ProbeDescriptor*>& descriptors = Probes::ourProbeDescriptors;
    for (int i = 0; i < descriptors.getSize(); i++) {
        ProbeDescriptor* descriptor = descriptors.getElements()[i];
        if (descriptor != nullptr && !visit(descriptor)) return;
    }
}

static ProbeDescriptor* findOwnDescriptor(const ZString& internalName) {
    ProbeDescriptor* found = nullptr;
    forEachDescriptor([&](ProbeDescriptor* d) {
        if (d->getClassSignature().equals(internalName)) found = d;
        return found == nullptr;
    });
    return found;
}

bool Probes::isDisabledProbeClass(const LockHolder& lock, const ZString& internalName) {
    ProbeDescriptor* own = findOwnDescriptor(internalName);
    return own != nullptr && own->getTopProbe()->isOff();
}

bool Probes::isAnyProbeApplicable(const LockHolder& lock, const ZString& internalName, const ZString& fullName) {
    bool applicable = false;
    forEachDescriptor([&](ProbeDescriptor* d) {
        if (d->getClassSignature().equals(internalName)) return true;
        for (int i = 0; i < d->getPatternCount() && !applicable; i++) {
            applicable = !d->isNegative(i) && isProbeApplicable(fullName, d->getClassPattern(i));
        }
        return !applicable;
    });
    return applicable;
}

bool Probes::applyProbes(const LockHolder& lock, ClassFile* classFile, const ZString& fullName, bool disabledProbe) {
    const ZString& signature = classFile->getSignature();
    if (disabledProbe) {
        ProbeDescriptor* own = findOwnDescriptor(signature);
        return own != nullptr && makeProbeCallbackMethodsEmpty(own, classFile);
    }
    bool changed = false;
    ZVector<int> positive;
    ZVector<int> negative;
    forEachDescriptor([&](ProbeDescriptor* d) {
        if (d->getClassSignature().equals(signature)) return true;
        positive.clear();
        negative.clear();
        for (int i = 0; i < d->getPatternCount(); i++) {
            if (!d->isCpuTracingSupport() &&
                (!isProbeApplicable(fullName, d->getClassPattern(i)) ||
                 !classFile->hasMatchingAnnotation(d->getClassAnnotationSignature(i)))) {
                continue;
            }
            (d->isNegative(i) ? negative : positive).push(i);
        }
        if (!positive.isEmpty() && LoggerInstrumenter::instrumentClassByProbeDescriptor(lock, d, positive, negative, classFile)) {
            changed = true;
        }
        return true;
    });
    return changed;
}
