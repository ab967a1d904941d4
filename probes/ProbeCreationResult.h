// The outcome of one registration over all classes it scanned: descriptors,
// error lines for the author of the probe, and the class names met.
#pragma once

#include "foundation/ZString.h"
#include "foundation/ZVector.h"
#include "probes/ProbeDescriptor.h"

class ProbeCreationResult {
public:
    ProbeCreationResult() : myDescriptorsTaken(false) {}
    // Deletes the descriptors that nobody took over.
    ~ProbeCreationResult();
    ProbeCreationResult(const ProbeCreationResult&) = delete;
    ProbeCreationResult& operator=(const ProbeCreationResult&) = delete;

    // "Error: " + message; the class forms name the probe class, its
    // method, and the parameter counted from 1.
    void addError(const ZString& message);
    void addError(const ZString& className, const ZString& message);
    void addError(const ZString& className, const ZString& method, const ZString& message);
    void addError(const ZString& className, const ZString& method, int parameterIndex, const ZString& message);
    // No error line, whatever class it came from.
    bool isOK() const { return myErrors.isEmpty(); }
    const ZVectorSafe<ZString>& getErrors() const { return myErrors; }
    // The error lines joined by a line feed.
    ZString getAllErrors() const;

    void addDescriptor(ProbeDescriptor* descriptor) { myDescriptors.push(descriptor); }
    ZVector<ProbeDescriptor*>& getDescriptors() { return myDescriptors; }
    // The descriptors now belong to the registry; they stay listed here.
    void releaseDescriptors() { myDescriptorsTaken = true; }

    void addScannedClass(const ZString& dottedName) { myScannedClasses.push(dottedName); }
    bool isScanned(const ZString& dottedName) const { return myScannedClasses.contains(dottedName); }
    // Scanned names joined by ", ".
    ZString getScannedClasses() const;
    // Internal names of inner classes that scanned classes refer to.
    void addInnerClassName(const ZString& internalName) { myInnerClassNames.pushOnce(internalName); }

    // "Successfully registered probes: " and the top probes of the
    // descriptors, each with its classes when the debug option bci is on.
    void logRegisteredProbeClasses() const;
    // "warning: missing inner class: " for each inner class never scanned.
    void logMissingInnerClassesWarning() const;
    // Built-in probes show by their short name, ".Files".
    static ZString getProbeClassSignatureForLog(const ZString& name);

private:
    ZVector<ProbeDescriptor*> myDescriptors;
    ZVectorSafe<ZString> myErrors;
    ZVectorSafe<ZString> myScannedClasses;
    ZVectorSafe<ZString> myInnerClassNames;
    bool myDescriptorsTaken;
};
