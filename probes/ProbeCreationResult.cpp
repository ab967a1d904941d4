#include "probes/ProbeCreationResult.h"

#include "probes/TopProbe.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "services/SharedConstants.h"

ProbeCreationResult::~ProbeCreationResult() {
    if (myDescriptorsTaken) return;
    for (ProbeDescriptor* descriptor : myDescriptors) delete descriptor;
}

void ProbeCreationResult::addError(const ZString& message) { myErrors.push(ZString("Error: ") + message); }

void ProbeCreationResult::addError(const ZString& className, const ZString& message) {
    addError(ZString("probe class ") + className + ": " + message);
}

void ProbeCreationResult::addError(const ZString& className, const ZString& method, const ZString& message) {
    addError(ZString("probe class ") + className + ", method " + method + ": " + message);
}

void ProbeCreationResult::addError(const ZString& className, const ZString& method, int parameterIndex,
                                   const ZString& message) {
    addError(ZString("probe class ") + className + ", method " + method + ", parameter #" +
             ZString::fromLong(parameterIndex + 1) + ": " + message);
}

static ZString join(const ZVectorSafe<ZString>& items, const char* separator) {
    ZString text;
    for (int i = 0; i < items.getSize(); i++) {
        if (i > 0) text.append(separator);
        text.append(items[i]);
    }
    return text;
}

ZString ProbeCreationResult::getAllErrors() const { return join(myErrors, "\n"); }

ZString ProbeCreationResult::getScannedClasses() const { return join(myScannedClasses, ", "); }

ZString ProbeCreationResult::getProbeClassSignatureForLog(const ZString& name) {
    return name.replaceAll(ZString(BUILTIN_PROBE_PACKAGE).replaceAll(".", "/").c_str(), ".");
}

void ProbeCreationResult::logRegisteredProbeClasses() const {
    ZVector<TopProbe*> tops;
    for (ProbeDescriptor* descriptor : myDescriptors) {
        if (!tops.contains(descriptor->getTopProbe())) tops.push(descriptor->getTopProbe());
    }
    bool bci = ourOptions.isDebug("bci");
    ZString text("Successfully registered probes: ");
    text.appendLong(tops.getSize());
    for (TopProbe* top : tops) {
        text.append("\n  Registered: ").append(getProbeClassSignatureForLog(top->getName().replaceAll(".", "/")));
        if (!bci) continue;
        for (ProbeDescriptor* descriptor : top->getDescriptors()) {
            text.append("\n    class: ").append(getProbeClassSignatureForLog(descriptor->getClassSignature()));
        }
    }
    Logger::message(text.replaceAll("/", "."));
}

void ProbeCreationResult::logMissingInnerClassesWarning() const {
    for (const ZString& name : myInnerClassNames) {
        if (!isScanned(name.replaceAll("/", "."))) Logger::message(ZString("warning: missing inner class: ") + name);
    }
}
