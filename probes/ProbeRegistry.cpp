// The registry: top probes, descriptors, and which classes a probe may touch.
#include "foundation/System.h"
#include "probes/Probes.h"
#include "recording/ClassNameFilter.h"
#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "services/SharedConstants.h"

ZVector<TopProbe*>& Probes::ourTopProbes = *new ZVector<TopProbe*>();
ZVector<ProbeDescriptor*>& Probes::ourProbeDescriptors = *new ZVector<ProbeDescriptor*>();
ZVectorSafe<ZString>& Probes::ourIgnoredPrefixes = *new ZVectorSafe<ZString>();
ZVectorSafe<ZString>& Probes::ourIncludedPrefixes = *new ZVectorSafe<ZString>();
ClassNameFilter* Probes::ourBCIFilter = nullptr;

// Classes that the agent and the JVM lean on: only a pattern that names the
// prefix itself reaches them. A "+" line takes a part back.
static const char* const DEFAULT_IGNORED_PREFIXES =
    "java.security.AccessController\n"
    "java.util.ResourceBundle\n"
    "sun.misc.\n"
    "jdk.internal.\n"
    "sun.util.\n"
    "sun.invoke.util.\n"
    "sun.nio.cs.\n"
    "java.lang.\n"
    "sun.reflect.\n"
    "java.util.\n"
    "java.security.\n"
    "com.ibm.\n"
    "+com.ibm.db2.\n"
    "com.corvane.Constants\n"
    "com.corvane.probes.\n"
    "com.corvane.runtime.\n"
    "com.corvane.util.Asserts\n"
    "com.corvane.util.Strings\n"
    "com.corvane.util.Util\n"
    "org.apache.tools.ant.taskdefs\n"
    "org.netbeans.TopSecurityManager\n";

bool Probes::isModeAutoProbesActive() {
    return TopProbe::areAutoProbesActive();
}

TopProbe* Probes::findOrCreateTopProbe(const ZString& className) {
    ZString name = className.replaceAll("/", ".").getFirstToken('$');
    for (TopProbe* top : ourTopProbes) {
        if (top->getName().equals(name)) return top;
    }
    TopProbe* top = new TopProbe(name, ourProbe2ActivityMode.get(name), false);
    ourTopProbes.push(top);
    return top;
}

void Probes::addProbes(ProbeCreationResult& result) {
    for (ProbeDescriptor* added : result.getDescriptors()) {
        for (ProbeDescriptor* known : ourProbeDescriptors) {
            if (known->getClassSignature().equals(added->getClassSignature())) {
                result.addError(added->getClassSignature().replaceAll("/", "."),
                                ZString("probe class with such name has already been registered"));
            }
        }
    }
    if (!result.isOK()) return;
    for (ProbeDescriptor* added : result.getDescriptors()) ourProbeDescriptors.push(added);
    result.releaseDescriptors();
}

// "/" and "." count as equal.
static bool startsWithName(const ZString& text, const ZString& prefix) {
    if (prefix.getLength() > text.getLength()) return false;
    for (int i = 0; i < prefix.getLength(); i++) {
        char a = text[i] == '/' ? '.' : text[i];
        char b = prefix[i] == '/' ? '.' : prefix[i];
        if (a != b) return false;
    }
    return true;
}

// Read once: an option for taking back the refusal of lambda proxies.
static bool isLambdaFixOff() {
    static const bool off = ourOptions.isInternalOption("_no_FIX_20151029_1");
    return off;
}

bool Probes::isProbeApplicable(const ZString& className, const ZString& classPattern) {
    if (!wildcardMatchZS(classPattern, className)) return false;
    if (!isLambdaFixOff() && className.getLength() >= 9 && className.contains("$$Lambda$")) return false;
    bool included = false;
    for (const ZString& prefix : ourIncludedPrefixes) included = included || className.startsWith(prefix);
    if (!included) {
        for (const ZString& prefix : ourIgnoredPrefixes) {
            if (className.startsWith(prefix) && !classPattern.startsWith(prefix)) return false;
        }
    }
    // A probe class itself only for a pattern that names it.
    for (ProbeDescriptor* descriptor : ourProbeDescriptors) {
        if (descriptor == nullptr) continue;
        const ZString& probeClass = descriptor->getClassSignature();
        if (probeClass.getLength() == className.getLength() && startsWithName(className, probeClass) &&
            !startsWithName(classPattern, probeClass)) {
            return false;
        }
    }
    return true;
}

void Probes::setIgnoredPrefixes(const ZString& text) {
    ourIgnoredPrefixes.clear();
    ourIncludedPrefixes.clear();
    ZVectorSafe<ZString> lines;
    splitConfigFile(&lines, text);
    for (const ZString& line : lines) {
        if (!line.startsWith("+")) {
            ourIgnoredPrefixes.push(line);
        } else if (line.getLength() > 1) {
            ourIncludedPrefixes.push(line.substring(1));
        }
    }
}

void Probes::readIgnoredPrefixesAndBCIFilter() {
    setIgnoredPrefixes(readConfigFromFile(ZString(), "probe_ignored_prefixes.txt", DEFAULT_IGNORED_PREFIXES));
    ZString filter = readConfigFromFile(ZString(), "bci_filter.txt", "");
    if (filter.isEmpty()) return;
    Logger::message(ZString("bci_filter.txt specified:\n") + filter);
    delete ourBCIFilter;
    ourBCIFilter = new ClassNameFilter(filter);
}

bool Probes::isFilteredMethod(const ZString& className, const ZString& name, const ZString& parameters) {
    return ourBCIFilter != nullptr && ourBCIFilter->isFilteredMethod(className, name, parameters);
}
