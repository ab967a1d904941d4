// Startup options: everything a user chooses at JVM start, as one
// comma-separated text. `ourOptions` holds the parsed result for the whole
// agent; a scratch instance in validation mode checks a text for the UI.
// The probe activity map that the probe options fill lives here as well.
#pragma once

#include <climits>
#include <cstdint>

#include "foundation/ZString.h"
#include "foundation/ZStringMap.h"
#include "foundation/ZVector.h"
#include "services/SharedConstants.h"

// As in com.corvane.api.ProbeActivityMode.
enum PROBE_ACTIVITY_MODE : int {
    PROBE_ACTIVITY_MODE_OFF = 0,
    PROBE_ACTIVITY_MODE_ON = 1,
    PROBE_ACTIVITY_MODE_AUTO = 2,
};
// Given to Options::setProbeActivityMode instead of a mode: drop the matches.
const int PROBE_ACTIVITY_MODE_REMOVE = -1;


// Probe class name to activity mode; an absent name reads as on.
extern ZStringMap<PROBE_ACTIVITY_MODE>& ourProbe2ActivityMode;
// Full class names of the built-in probes, null-terminated.
extern const char* const ourBuiltInProbes[];

// What the `exceptions` options said.
enum ExceptionsMode : int {
    EXCEPTIONS_MODE_DEFAULT = 0,   // nothing said
    EXCEPTIONS_MODE_REQUESTED = 1, // exceptions=on or exceptions=off: the capability is wanted
    EXCEPTIONS_MODE_DISABLED = 2,  // disabled altogether
};

// Where the usage text and the load failure advice send the user.
extern const char* const STARTUP_OPTIONS_HELP_URL;

class Options {
public:
    // Defaults, with the command line of this process.
    Options();
    // Defaults, with the given command line (launcher first).
    explicit Options(const ZVectorSafe<ZString>& commandLine);
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;

    // The early scan for the logging options; sets the Logger statics and
    // makes the next message open a new log file.
    void initializeLogger(const ZString& options);
    // Parses into this instance against ourCapabilities.get() and ourStatus. False
    // when the agent must not start (an invalid option, or `help`); the
    // reason and the usage are printed.
    bool applyOptions(const ZString& options);
    static void printUsage();
    // Empty on success, else the message. `capabilities` is the word to edit.
    // With `apply` false no global state changes.
    ZString parseOptions(const ZString& options, uint64_t* capabilities, bool* showUsage, bool apply);

    // Internal options: entries that begin with "_", kept whole.
    bool isInternalOption(const char* name) const;
    // The value of the first "name=..." entry by the isPrefixInt rule
    // (malformed gives 0), or `defaultValue` when there is none.
    int getInternalInt(const char* name, int defaultValue) const;
    // The quoted-decoded value of the first "name=..." entry, or empty.
    ZString getInternalOption(const char* name) const;
    const ZVectorSafe<ZString>& getInternalOptions() const { return myInternalOptions; }

    bool isDebug(const char* category) const;
    const ZVectorSafe<ZString>& getDebugCategories() const { return myDebugCategories; }

    // JVM arguments, searched from index 1 (index 0 is the executable).
    const ZVectorSafe<ZString>& getCommandLine() const { return myCommandLine; }
    bool containsVMArgument(const char* prefix) const;
    bool containsSubstring(const char* lowerCaseText) const;
    // The -XX:HeapDumpPath= value, or the current directory.
    ZString getHeapDumpPath() const;
    // `name` in the `tmpdir` folder, /tmp by default.
    ZString getAgentTempFilePath(const char* name) const;

    // The probe map. A pattern with "*" never touches the built-in
    // "...Support" probes; a plain name enters the map first.
    static void setProbeActivityMode(const ZString& pattern, int mode);
    static void addProbe(const ZString& name);
    static void removeProbe(const ZString& name);
    static void addBuiltInProbes();
    static void removeBuiltInProbes();

    // Names and texts.
    const ZString& getDefaultSessionName() const { return myDefaultSessionName; }
    const ZString& getSessionName() const { return mySessionName; }
    const ZString& getSnapshotNameFormat() const { return mySnapshotNameFormat; }
    const ZString& getFullOptions() const { return myFullOptions; }
    const ZString& getTmpDir() const { return myTmpDir; }
    const ZString& getDir() const { return myDir; }
    const ZString& getProfilerDir() const { return myProfilerDir; }
    const ZString& getSamplingSettingsPath() const { return mySamplingSettingsPath; }
    const ZString& getTracingSettingsPath() const { return myTracingSettingsPath; }
    const ZString& getTriggersPath() const { return myTriggersPath; }
    // Triggers gathered from periodic* and usedmem* options.
    const ZString& getTriggerText() const { return myTriggerText; }
    const ZVectorSafe<ZString>& getProbeClassPath() const { return myProbeClassPath; }
    const ZVectorSafe<ZString>& getProbeBootClassPath() const { return myProbeBootClassPath; }

    // Recording asked for at start.
    bool isSampling() const { return mySampling; }
    bool isTracing() const { return myTracing; }
    bool isCallCounting() const { return myCallCounting; }
    // 0, or the asynchronous sampling bits of the status word.
    uint64_t getSamplingMode() const { return mySamplingMode; }
    bool isNativesDisabled() const { return myDisableNatives; }
    int getAllocEach() const { return myAllocEach; }
    int getAllocSizeLimit() const { return myAllocSizeLimit; }
    // 0 (none), 2 (exact stacks), 8194 (sampled) or 16386 (object counting).
    int getAllocationMode() const { return myAllocationMode; }
    bool isMonitorProfiling() const { return myMonitors; }
    bool isWithDebugger() const { return myWithDebugger; }
    ExceptionsMode getExceptionsMode() const { return myExceptionsMode; }
    bool isOnExitMemory() const { return myOnExitMemory; }
    bool isOnExitSnapshot() const { return myOnExitSnapshot; }

    // Limits and timing. The telemetry limit is a number of points once
    // parsing is done; the telemetry ring holds at most INT_MAX of them.
    int getTelemetryLimit() const { return myTelemetryLimit > INT_MAX ? INT_MAX : (int)myTelemetryLimit; }
    int getTelemetryPeriod() const { return myTelemetryPeriod; }
    int getProbeTableLengthLimit() const { return myProbeTableLengthLimit; }
    int getDeadThreadLimit() const { return myDeadThreadLimit; }
    bool isOomeDumperDisabled() const { return myDisableOomeDumper; }
    // Milliseconds before the profiler threads start; -1: not until asked.
    int getDelay() const { return myDelay; }

    // Control port.
    int getLowerPort() const { return myLowerPort; }
    int getUpperPort() const { return myUpperPort; }
    bool shouldSkipAdvancedPortCheck() const { return mySkipAdvancedPortCheck; }
    const ZString& getListen() const { return myListen; }
    int getIdePort() const { return myIdePort; }

private:
    struct ParseState;

    void setDefaults();
    void rewriteObsoleteOptions(const ZString& options, ZVectorSafe<ZString>& result, bool apply) const;
    ZString parseOption(const ZString& entry, ParseState& state);
    bool parseRecordingOption(const ZString& entry, ParseState& state, ZString& error);
    bool parseProbeOption(const ZString& entry, ParseState& state, ZString& error);
    bool parseTelemetryOption(const ZString& entry, ParseState& state, ZString& error);
    bool parseTriggerOption(const ZString& entry, ParseState& state, ZString& error);
    bool parseOtherOption(const ZString& entry, ParseState& state, ZString& error);
    ZString finalChecks(uint64_t* capabilities, bool apply);
    bool findInternalValue(const char* name, ZString* value) const;

    ZVectorSafe<ZString> myCommandLine;
    ZVectorSafe<ZString> myDebugCategories;
    bool myDebugAll;
    ZVectorSafe<ZString> myInternalOptions;
    ZString myDefaultSessionName;

    ZString myTmpDir;
    ZString mySessionName;
    ZString mySnapshotNameFormat;
    ZString myFullOptions;

    bool mySampling;
    bool myTracing;
    bool myCallCounting;
    uint64_t mySamplingMode;
    bool myDisableNatives;
    int myAllocEach;
    int myAllocSizeLimit;
    int myAllocationMode;
    bool myMonitors;
    bool myWithDebugger;

    int64_t myTelemetryLimit;
    int myProbeTableLengthLimit;
    int myDeadThreadLimit;
    bool myDisableOomeDumper;
    int myDelay;
    int myTelemetryPeriod;
    int myLowerPort;
    int myUpperPort;
    bool mySkipAdvancedPortCheck;

    ZString myListen;
    int myIdePort;
    ZString myDir;
    ZVectorSafe<ZString> myProbeClassPath;
    ZVectorSafe<ZString> myProbeBootClassPath;
    ZString myProfilerDir;
    bool myOnExitMemory;
    bool myOnExitSnapshot;
    ZString mySamplingSettingsPath;
    ZString myTracingSettingsPath;
    ZString myTriggersPath;
    ZString myTriggerText;
    ExceptionsMode myExceptionsMode;
};

// The options of this agent, built at library load and never destroyed.
extern Options& ourOptions;

// "KZTQUOTED" and an even number of hex digits spell the bytes; anything
// else comes back as it is. Lets a value hold commas.
ZString decodeQuotedValue(const ZString& value);
// Each "{NAME}" becomes the value of environment variable NAME.
ZString substituteEnvironmentVars(const ZString& text);
// ".Sync" names the built-in probe com.corvane.probes.builtin.Sync.
ZString expandShortProbeName(const ZString& name);
bool isValidPort(long long port);
// "N" or "LOWER-UPPER". Writes lower and upper only when they make a valid
// port or range, and tells whether they did.
bool parsePortOrRange(const ZString& text, int* lower, int* upper);
