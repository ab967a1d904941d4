// The layers include only what lies below them. Where a lower layer must
// reach a higher one it does so through a named joint, and this file is the
// whole list of them, filled in plain order when the library starts.
#include "agent/Wiring.h"

#include "agent/ModeControl.h"
#include "agent/NativeTable.h"
#include "db/DB.h"
#include "db/ZMethod.h"
#include "instrumentation/EmbeddedClass.h"
#include "instrumentation/InstrumentationJoints.h"
#include "probes/ClassLoadingProbe.h"
#include "probes/Probes.h"
#include "recording/AllocationRecording.h"
#include "db/EventTableRows.h"
#include "recording/CountingSupport.h"
#include "recording/JavaObjectMap.h"
#include "recording/PlayerEventAdding.h"
#include "recording/CpuTracing.h"
#include "recording/ThreadInfo.h"
#include "recording/TracingSettings.h"
#include "runtime/RuntimeArchive.h"
#include "services/Logger.h"
#include "snapshot/HeapCapture.h"
#include "snapshot/TableStream.h"

static const SnapshotParticipant ourClassUnloadParticipant = {ClassLoadingProbe::flushUnloadedClassesToDB, nullptr};
static const SnapshotParticipant ourCpuTracingParticipant = {CpuTracing::beginCapture, CpuTracing::endCapture};
static const SnapshotParticipant ourAllocationParticipant = {AllocationRecording::beginCapture, nullptr};

void wireAgent() {
    static bool wired = false;
    if (wired) return;
    wired = true;

    // The foundation's failures and messages go to the log.
    Logger::installFailureReporting();

    // The database: pseudo threads when it is made, timing flags of each new method.
    DB::ourCreatePseudoThreads = ThreadInfo::createPseudoThreads;
    ZMethod::ourApplyFilters = Filter::applyFilters;

    // The instrumentation: what tracing decides about the Callback stubs.
    ourRecordingJoint.isAdaptiveTracing = CpuTracing::isAdaptiveTracing;
    ourRecordingJoint.canSetLineNumbers = CpuTracing::canSetLineNumbers;
    // The counters that rewritten methods and allocation sites count into.
    ourCountingJoint.getCallCounterAddress = CallCounting::getCounterAddress;
    ourCountingJoint.getAllocCounterAddress = AllocObjectCounting::getCounterAddress;
    ourCountingJoint.getFactor = CountingSupportBase::getFactor;
    ourCallbackBytecode = {ourCallbackClassBytes, ourCallbackClassLength};
    ourMethodListenerProbeBytecode = {ourMethodListenerProbeClassBytes, ourMethodListenerProbeClassLength};
    // The class load hook: probe classes, and the classes probes instrument.
    ourProbeJoint.isDisabledProbeClass = Probes::isDisabledProbeClass;
    ourProbeJoint.isAnyProbeApplicable = Probes::isAnyProbeApplicable;
    ourProbeJoint.applyProbes = Probes::applyProbes;
    ourProbeJoint.isFilteredMethod = Probes::isFilteredMethod;

    // Rows of event tables, played from the threads' streams into the tables.
    PlayerEventAdding::installPlayers();
    // A deleted row ends the object map entries that point at it.
    EventTableRows::ourRemoveObjectMapEvent = JavaObjectMap::removeEvent;

    // Captures and table streams: in this order, around every write.
    // Classes unloaded since the last telemetry sample are rows before the threads' events are played.
    registerSnapshotParticipant(&ourClassUnloadParticipant);
    registerSnapshotParticipant(&ourCpuTracingParticipant);
    registerSnapshotParticipant(&ourAllocationParticipant);
    // Memory snapshots: object tags carry the generation of their capture.
    ourHeapCaptureJoint.getCurrentGenerationID = Generations::getCurrentGenerationID;
    ourHeapCaptureJoint.openGeneration = Generations::openGeneration;

    // The natives of com.corvane.runtime.Callback.
    addNativeGroup(ourAgentCoreNatives);
    addNativeGroup(ourAllocationNatives);
    addNativeGroup(ourEntryPointNatives);
    addNativeGroup(ourModeControlNatives);
    addNativeGroup(ourMonitorNatives);
    addNativeGroup(ourProbeNatives);
    addNativeGroup(ourEventTableNatives);
    addNativeGroup(ourObjectMapNatives);
    addNativeGroup(ourSessionNatives);
    addNativeGroup(ourSnapshotNatives);
    addNativeGroup(ourTracingNatives);
}
