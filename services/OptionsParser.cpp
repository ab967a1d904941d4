// The startup option language: rewriting of retired options, one handler
// group per kind of option, and the checks on the combination.
#include <climits>
#include <cstdio>

#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "foundation/System.h"

static const uint64_t ASYNC_SAMPLING_MODE_BITS = 0x60000;

struct Options::ParseState {
    uint64_t* capabilities;
    bool apply;
    bool attaching;
    bool showUsage;
};

static void warn(bool apply, const ZString& text) {
    if (apply) Logger::message(text, stdout);
}

// The decoded value of an entry that begins with `name` ("name=").
static bool valueOf(const ZString& entry, const char* name, ZString* value) {
    if (!ZString::isPrefix(entry, name, value)) return false;
    *value = decodeQuotedValue(*value);
    return true;
}

// A numeric value: optional minus and digits. A malformed one reads as a
// number below every range, so that the option's own message refuses it.
static bool numberOf(const ZString& entry, const char* name, long long* number) {
    ZString value;
    if (!valueOf(entry, name, &value)) return false;
    bool failed = false;
    *number = value.parseLong(&failed);
    if (failed) *number = LLONG_MIN;
    return true;
}

// The same where a malformed value reads as 0.
static bool lenientNumberOf(const ZString& entry, const char* name, long long* number) {
    ZString value;
    if (!valueOf(entry, name, &value)) return false;
    *number = value.parseLong();
    return true;
}

static bool inIntRange(long long value, long long minimum, long long maximum = INT_MAX) {
    return value >= minimum && value <= maximum;
}

// Stores a number of at least `minimum`, or gives the message.
static void storeAtLeast(long long number, long long minimum, int* field, const char* message, ZString& error) {
    if (inIntRange(number, minimum))
        *field = (int)number;
    else
        error = message;
}

// ---- Step 1 and 2: built-in probes, retired options ----

static ZString deprecatedIgnored(const ZString& entry, const char* advice) {
    return ZString("warning: deprecated option \"") + entry + "\" ignored; " + advice;
}

void Options::rewriteObsoleteOptions(const ZString& options, ZVectorSafe<ZString>& result, bool apply) const {
    ZVectorSafe<ZString> entries;
    options.split(",", entries);
    for (const ZString& entry : entries) {
        ZString value;
        ZString replacement;
        if (entry == "builtinprobes=all") {
            warn(apply, deprecatedIgnored(entry, "it corresponds to the default behavior"));
        } else if (entry.startsWith("filters=")) {
            warn(apply, deprecatedIgnored(entry, "configure CPU tracing settings instead"));
        } else if (entry.startsWith("samplingperiod=") || entry.startsWith("samplingdelta=")) {
            warn(apply, deprecatedIgnored(entry, "configure CPU sampling settings instead"));
        } else if (entry.startsWith("walltimespec=")) {
            warn(apply, deprecatedIgnored(entry, "configure CPU sampling/tracing settings instead"));
        } else if (entry == "noj2ee" || entry == "disablej2ee") {
            warn(apply, deprecatedIgnored(entry, "use probe_off=* or probe_disable=* options instead"));
        } else if (entry.startsWith("profileruipath")) {
            warn(apply, ZString("warning: obsolete option \"") + entry +
                            "\" ignored; profiler UI won't launch; to fix this issue, install the newest IDE plugin");
        } else if (entry == "onlylocal") {
            warn(apply, "warning: obsolete option \"onlylocal\" ignored; see description of \"listen\" for alternative");
        } else if (entry == "builtinprobes=none") {
            replacement = ZString("probe_disable=") + BUILTIN_PROBE_PACKAGE + "*";
        } else if (ZString::isPrefix(entry, "probe=", &value)) {
            if (value == "classloading") value = ZString(BUILTIN_PROBE_PACKAGE) + "ClassLoading";
            replacement = ZString("probe_on=") + value;
        } else if (ZString::isPrefix(entry, "noprobe=", &value)) {
            if (value == "classloading") value = "ClassLoading";
            replacement = ZString("probe_disable=") + BUILTIN_PROBE_PACKAGE + value;
        } else {
            result.push(entry);
        }
        if (!replacement.isEmpty()) {
            warn(apply, ZString("warning: deprecated option: \"") + entry + "\"; using \"" + replacement + "\" instead");
            result.push(replacement);
        }
    }
}

ZString Options::parseOptions(const ZString& options, uint64_t* capabilities, bool* showUsage, bool apply) {
    KZT_ASSERT_NOT_NULL(capabilities);
    KZT_ASSERT_NOT_NULL(showUsage);
    ParseState state = {capabilities, apply, (*capabilities & CAPABILITY_ATTACHED_AGENT) != 0, false};
    *showUsage = false;

    if (apply) {
        myFullOptions = options;
        addBuiltInProbes();
        ourProbe2ActivityMode.put(ZString(BUILTIN_PROBE_PACKAGE) + "AgentLoadingSupport", PROBE_ACTIVITY_MODE_ON);
        if (state.attaching) {
            removeProbe(ZString(BUILTIN_PROBE_PACKAGE) + "JUnitTests");
            removeProbe(ZString(BUILTIN_PROBE_PACKAGE) + "TestNG");
        }
    }

    ZVectorSafe<ZString> entries;
    rewriteObsoleteOptions(options, entries, apply);
    for (const ZString& entry : entries) {
        ZString error = parseOption(entry, state);
        if (state.showUsage) {
            *showUsage = true;
            return ZString();
        }
        if (!error.isEmpty()) return error;
    }
    return finalChecks(capabilities, apply);
}

// ---- Step 3: one entry ----

ZString Options::parseOption(const ZString& entry, ParseState& state) {
    ZString error;
    if (parseRecordingOption(entry, state, error) || parseProbeOption(entry, state, error) ||
        parseTelemetryOption(entry, state, error) || parseTriggerOption(entry, state, error) ||
        parseOtherOption(entry, state, error)) {
        return error;
    }
    // Unknown: the entry itself is the message.
    return entry;
}

bool Options::parseRecordingOption(const ZString& entry, ParseState& state, ZString& error) {
    if (entry == "help") {
        state.showUsage = true;
    } else if (entry == "tracing") {
        myTracing = true;
        if (state.apply) ourStatus.add(TRACING_WILL_START);
    } else if (entry == "call_counting") {
        myCallCounting = true;
    } else if (entry == "noperclassgc") {
        Logger::message("warning: deprecated option \"noperclassgc\" ignored; allocation is always per-class now",
                        stdout);
    } else if (entry == "allocsampled") {
        myAllocationMode = 8194;
    } else if (entry == "alloc_object_counting") {
        myAllocationMode = 16386;
    } else if (entry == "disablealloc") {
        *state.capabilities &= ~(uint64_t)CAPABILITY_ALLOC_BCI;
    } else if (entry == "disabletracing") {
        *state.capabilities &= ~(uint64_t)CAPABILITY_TRACING;
    } else if (entry == "disablenatives") {
        myDisableNatives = true;
    } else if (entry == "disable_heap_sampling") {
        *state.capabilities &= ~(uint64_t)CAPABILITY_HEAP_SAMPLING;
    } else if (entry == "deadlocks=off") {
        if (state.apply) ourStatus.remove(SHOULD_DETECT_DEADLOCKS);
    } else if (entry == "deadlocks=on") {
        if (state.apply) ourStatus.add(SHOULD_DETECT_DEADLOCKS);
    } else {
        return false;
    }
    return true;
}

// Adds the ":"-separated elements of a probe class path; on attach only
// archives can be added to a running JVM's search.
static ZString addProbePathElements(const ZString& value, bool attaching, bool apply, const char* refusal,
                                    const char* logLabel, ZVectorSafe<ZString>& list) {
    ZVectorSafe<ZString> elements;
    value.split(":", elements);
    for (const ZString& element : elements) {
        if (attaching && !element.toLowerCase().endsWith(".jar")) return ZString(refusal) + element;
        if (apply) Logger::message(ZString(logLabel) + element);
        list.push(element);
    }
    return ZString();
}

bool Options::parseProbeOption(const ZString& entry, ParseState& state, ZString& error) {
    static const struct {
        const char* name;
        int mode;
    } MODE_OPTIONS[] = {
        {"probe_disable=", PROBE_ACTIVITY_MODE_REMOVE},
        {"probe_auto=", PROBE_ACTIVITY_MODE_AUTO},
        {"probe_off=", PROBE_ACTIVITY_MODE_OFF},
        {"probe_on=", PROBE_ACTIVITY_MODE_ON},
    };
    ZString value;
    long long number;
    if (valueOf(entry, "probeclasspath=", &value)) {
        error = addProbePathElements(value, state.attaching, state.apply,
                                     "'probeclasspath' accepts only JAR files in attach mode: ",
                                     "probeSystemClassPath: ", myProbeClassPath);
        return true;
    }
    if (valueOf(entry, "probebootclasspath=", &value)) {
        error = addProbePathElements(value, state.attaching, state.apply,
                                     "in attach mode 'probebootclasspath' accepts only JAR files: ",
                                     "probeBootClassPath: ", myProbeBootClassPath);
        return true;
    }
    for (const auto& option : MODE_OPTIONS) {
        if (valueOf(entry, option.name, &value)) {
            if (state.apply) setProbeActivityMode(expandShortProbeName(value), option.mode);
            return true;
        }
    }
    if (numberOf(entry, "probetablelengthlimit=", &number)) {
        storeAtLeast(number, 1, &myProbeTableLengthLimit,
                     "'probetablelengthlimit' value is invalid (should be positive)", error);
        return true;
    }
    if (numberOf(entry, "deadthreadlimit=", &number)) {
        storeAtLeast(number, 1, &myDeadThreadLimit, "'deadthreadlimit' value is invalid (should be positive)", error);
        return true;
    }
    return false;
}

bool Options::parseTelemetryOption(const ZString& entry, ParseState& state, ZString& error) {
    long long number;
    if (entry == "exceptions=disable" || entry == "disableexceptiontelemetry") {
        if (state.apply) ourStatus.remove(EXCEPTION_PROFILING);
        myExceptionsMode = EXCEPTIONS_MODE_DISABLED;
    } else if (entry == "exceptions=off") {
        if (state.apply) ourStatus.remove(EXCEPTION_PROFILING);
        myExceptionsMode = EXCEPTIONS_MODE_REQUESTED;
    } else if (entry == "exceptions=on") {
        if (state.apply) ourStatus.add(EXCEPTION_PROFILING);
        myExceptionsMode = EXCEPTIONS_MODE_REQUESTED;
    } else if (entry == "disablestacktelemetry") {
        if (state.apply) ourStatus.remove(STACK_TELEMETRY);
    } else if (entry == "disableoomedumper") {
        myDisableOomeDumper = true;
    } else if (numberOf(entry, "telemetrylimit=", &number)) {
        // Hours, kept as seconds until the final checks turn them into points.
        if (number >= 1 && number <= LLONG_MAX / 3600)
            myTelemetryLimit = (int64_t)number * 3600;
        else
            error = "'telemetrylimit' value is invalid: number of hours should be >= 1";
    } else if (numberOf(entry, "telemetry_point_limit=", &number)) {
        if (number >= 1)
            myTelemetryLimit = number;
        else
            error = "'telemetry_point_limit' value is invalid: number of points should be >= 1";
    } else if (numberOf(entry, "telemetryperiod=", &number)) {
        storeAtLeast(number, 0, &myTelemetryPeriod, "telemetry period is invalid", error);
    } else {
        return false;
    }
    return true;
}

// ---- Triggers, in the syntax of the triggers file ----

bool Options::parseTriggerOption(const ZString& entry, ParseState& state, ZString& error) {
    static const struct {
        const char* name;
        bool heapUsage;  // a percentage of 50 to 90, else a period of at least 1 s
        const char* action;
        const char* invalid;
    } TRIGGER_OPTIONS[] = {
        {"periodicmem=", false, "CaptureMemorySnapshot", "'periodicmem' value is invalid (should be positive)"},
        {"periodichprof=", false, "CaptureHprofSnapshot", "'periodichprof' value is invalid (should be positive)"},
        {"periodicperf=", false, "CapturePerformanceSnapshot", "'periodicperf' value is invalid (should be positive)"},
        {"usedmem=", true, "CaptureMemorySnapshot",
         "'usedmem' value is invalid: usage percent should be an integer in the range 50..90"},
        {"usedmemhprof=", true, "CaptureHprofSnapshot",
         "'usedmemhprof' value is invalid: usage percent should be an integer in the range 50..90"},
    };
    long long number;
    for (const auto& option : TRIGGER_OPTIONS) {
        if (!numberOf(entry, option.name, &number)) continue;
        if (state.apply && ourIsIbm && entry.startsWith("periodichprof=")) {
            error = "'periodichprof' cannot be used with IBM Java; use 'periodicmem' instead";
        } else if (option.heapUsage ? !inIntRange(number, 50, 90) : !inIntRange(number, 1)) {
            error = option.invalid;
        } else if (option.heapUsage) {
            myTriggerText.append("HeapMemoryUsageListener usageThresholdPercent=").appendLong(number);
            myTriggerText.append(" minimumTimeToActivateMs=0 maxTriggerCount=1\n  ").append(option.action).append("\n");
        } else {
            myTriggerText.append("TimerListener delay=").appendLong(number).append("s\n  ");
            myTriggerText.append(option.action).append("\n");
        }
        return true;
    }
    return false;
}

// ---- Everything else ----

static ZString checkListen(const ZString& value) {
    if (value.indexOfChar(':') >= 0)
        return "'listen' option no longer allows port specification; please use the dedicated option 'port' to set the port";
    if (value.isEmpty()) return "'listen' is invalid: empty value";
    // The first character is left unchecked on purpose.
    for (int i = 1; i < value.getLength(); i++) {
        char c = value[i];
        bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                       c == '.';
        if (!allowed) return "'listen' is invalid: value is not a valid IP address or host name";
    }
    return ZString();
}

bool Options::parseOtherOption(const ZString& entry, ParseState& state, ZString& error) {
    // Options stored as they come.
    const struct {
        const char* name;
        ZString* field;
    } TEXT_OPTIONS[] = {
        {"dir=", &myDir},
        {"tmpdir=", &myTmpDir},
        {"sampling_settings_path=", &mySamplingSettingsPath},
        {"tracing_settings_path=", &myTracingSettingsPath},
        {"triggers=", &myTriggersPath},
        {"profiler_dir=", &myProfilerDir},
    };
    // Read by initializeLogger, accepted here.
    static const char* const LOGGER_OPTIONS[] = {"quiet", "united_log", "log_sys_time"};
    static const char* const LOGGER_VALUE_OPTIONS[] = {"sessionname=", "log_file_size_limit=", "logdir="};

    ZString value;
    long long number;
    if (entry == "disableall") {
        *state.capabilities &= ~(uint64_t)(CAPABILITY_TRACING | CAPABILITY_ALLOC_BCI | CAPABILITY_ASYNC_SAMPLING);
        myDisableNatives = true;
        myExceptionsMode = EXCEPTIONS_MODE_DISABLED;
        if (state.apply) {
            removeBuiltInProbes();
            ourStatus.remove(STACK_TELEMETRY | EXCEPTION_PROFILING | SHOULD_DETECT_DEADLOCKS);
        }
        return true;
    }
    if (entry == "monitors") {
        myMonitors = true;
        return true;
    }
    if (entry == "sampling") {
        mySampling = true;
        mySamplingMode = 0;
        return true;
    }
    if (entry == "async_sampling_cpu" || entry == "async_sampling_periodic") {
        error = ZString("'") + entry + "' cannot be used: asynchronous sampling is not available on " +
                getPresentablePlatformName();
        return true;
    }
    if (entry == "disable_async_sampling") {
        *state.capabilities &= ~(uint64_t)CAPABILITY_ASYNC_SAMPLING;
        return true;
    }
    if (numberOf(entry, "alloceach=", &number)) {
        storeAtLeast(number, 0, &myAllocEach, "'alloceach' value is invalid (must be a number >= 0)", error);
        if (error.isEmpty() && myAllocationMode == 0) myAllocationMode = 2;
        return true;
    }
    if (numberOf(entry, "allocsizelimit=", &number)) {
        storeAtLeast(number, 0, &myAllocSizeLimit, "'allocsizelimit' value is invalid (must be a number >= 0)", error);
        if (error.isEmpty() && myAllocationMode == 0) myAllocationMode = 2;
        return true;
    }
    if (valueOf(entry, "port=", &value)) {
        if (!parsePortOrRange(value, &myLowerPort, &myUpperPort)) error = "'port' value is invalid";
        return true;
    }
    if (valueOf(entry, "listen=", &value)) {
        error = checkListen(value);
        if (error.isEmpty()) myListen = value;
        return true;
    }
    if (entry == "skip_advanced_port_check") {
        mySkipAdvancedPortCheck = true;
        return true;
    }
    for (const char* name : LOGGER_OPTIONS)
        if (entry == name) return true;
    for (const char* name : LOGGER_VALUE_OPTIONS)
        if (entry.startsWith(name)) return true;
    if (valueOf(entry, "snapshot_name_format=", &value)) {
        if (!value.isEmpty()) mySnapshotNameFormat = value;
        return true;
    }
    if (valueOf(entry, "debug=", &value)) {
        myDebugCategories.push(value);
        if (value == "all") myDebugAll = true;
        return true;
    }
    if (entry.startsWith("_")) {
        myInternalOptions.push(entry);
        return true;
    }
    if (entry == "withdebugger") {
        myWithDebugger = true;
        return true;
    }
    if (entry == "delay=-1") {
        myDelay = -1;
        return true;
    }
    if (numberOf(entry, "delay=", &number)) {
        if (state.attaching)
            warn(state.apply, "warning: ignoring 'delay' in attach mode");
        else
            storeAtLeast(number, 0, &myDelay, "'delay' is invalid", error);
        return true;
    }
    if (entry == "onexit=memory") {
        myOnExitMemory = true;
        return true;
    }
    if (entry == "onexit=snapshot") {
        myOnExitSnapshot = true;
        return true;
    }
    for (const auto& option : TEXT_OPTIONS) {
        if (valueOf(entry, option.name, &value)) {
            *option.field = value;
            return true;
        }
    }
    if (lenientNumberOf(entry, "ideport=", &number)) {
        myIdePort = (int)number;
        return true;
    }
    return false;
}

// ---- Step 4: the combination ----

ZString Options::finalChecks(uint64_t* capabilities, bool apply) {
    if (myTracing && mySampling) return "'tracing' cannot be used in combination with 'sampling'";
    if (myTracing && myCallCounting) return "'tracing' cannot be used in combination with 'call_counting'";
    if (mySampling && myCallCounting) return "'sampling' cannot be used in combination with 'call_counting'";
    if (myAllocationMode != 0 && (*capabilities & (CAPABILITY_ALLOC_BCI | CAPABILITY_HEAP_SAMPLING)) == 0)
        return "'alloc*' options cannot be used in combination with 'disablealloc' or 'disableall'";
    // Heap sampling replaces allocation recording by bytecode.
    if (*capabilities & CAPABILITY_HEAP_SAMPLING) *capabilities &= ~(uint64_t)CAPABILITY_ALLOC_BCI;
    if ((*capabilities & CAPABILITY_TRACING) == 0) {
        if (myTracing) return "'tracing' cannot be used in combination with 'disabletracing' or 'disableall'";
        if (myCallCounting)
            return "'call_counting' cannot be used in combination with 'disabletracing' or 'disableall'";
    }
    if ((*capabilities & CAPABILITY_ASYNC_SAMPLING) == 0 && (mySamplingMode & ASYNC_SAMPLING_MODE_BITS) != 0) {
        if (apply && ourIsIbm)
            return "'async_sampling_cpu' cannot be used: asynchronous sampling is not available on IBM Java";
        return "'async_sampling_cpu' cannot be used in combination with 'disable_async_sampling' or 'disableall'";
    }
    // From here on the limit counts telemetry points, not seconds.
    if (myTelemetryPeriod > 0) {
        // In 64 bits; a limit past what they hold stays the largest.
        myTelemetryLimit = myTelemetryLimit > LLONG_MAX / 1000 ? LLONG_MAX / myTelemetryPeriod
                                                                : myTelemetryLimit * 1000 / myTelemetryPeriod;
    }
    return ZString();
}
