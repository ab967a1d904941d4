// Shared pieces of the probe tests: a clean registry per test, and the class
// load hook with the probes wired in as the agent wires them.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "instrumentation/InstrumentationJoints.h"
#include "probes/Probes.h"
#include "unit/ScratchFolder.h"
#include "unit/instrumentation/InstrumentationTestSupport.h"
#include "unit/services/LoggerCapture.h"

namespace fs = std::filesystem;

inline void removeAllProbes() {
    for (ProbeDescriptor* d : Probes::ourProbeDescriptors) delete d;
    Probes::ourProbeDescriptors.clear();
    for (TopProbe* top : Probes::ourTopProbes) delete top;
    Probes::ourTopProbes.clear();
}

class ProbesTest : public InstrumentationTest {
protected:
    void SetUp() override {
        InstrumentationTest::SetUp();
        ourCapabilities.set(0);
        removeAllProbes();
        ourProbe2ActivityMode.clear();
        Probes::readIgnoredPrefixesAndBCIFilter();
        mySavedJoint = ourProbeJoint;
        ourProbeJoint = {Probes::isDisabledProbeClass, Probes::isAnyProbeApplicable, Probes::applyProbes,
                         Probes::isFilteredMethod};
    }
    void TearDown() override {
        removeAllProbes();
        ourProbe2ActivityMode.clear();
        ourProbeJoint = mySavedJoint;
        InstrumentationTest::TearDown();
    }

    Bytes classBytes(const std::string& internalName) const {
        return readFileBytes((myWork / "classes" / (internalName + ".class")).string());
    }

    // Compiles a probe class into a fresh result.
    void create(const std::string& internalName, ProbeCreationResult& result) const {
        Bytes bytes = classBytes(internalName);
        ZVector<unsigned char> vector;
        for (unsigned char b : bytes) vector.push(b);
        LockHolder lock(&ourLock, LOCK_SITE);
        Probes::createProbeDescriptor(&vector, PROBE_STATUS_SETTLED, &result, nullptr);
    }

    // Compiles and registers probe classes; fails the test on an error.
    void registerProbes(const std::vector<std::string>& internalNames) const {
        ProbeCreationResult result;
        for (const std::string& name : internalNames) create(name, result);
        LockHolder lock(&ourLock, LOCK_SITE);
        Probes::addProbes(result);
        ASSERT_TRUE(result.isOK()) << result.getAllErrors().c_str();
    }

    ScratchFolder myScratch;
    fs::path myWork = myScratch.path;
    ProbeJoint mySavedJoint;
};
