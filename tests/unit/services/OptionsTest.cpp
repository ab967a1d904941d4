#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "LoggerCapture.h"
#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/Options.h"

namespace {

const uint64_t VALIDATION_CAPABILITIES = 0xC0140;

ZVectorSafe<ZString> commandLine(std::initializer_list<const char*> args) {
    ZVectorSafe<ZString> result;
    for (const char* arg : args) result.push(ZString(arg));
    return result;
}

std::string str(const ZString& s) { return std::string(s.c_str(), s.getLength()); }

// Parses in validation mode, as the UI does, on a fresh instance.
struct Validated {
    Options options{commandLine({"java", "Main"})};
    uint64_t capabilities = VALIDATION_CAPABILITIES;
    bool showUsage = false;
    std::string error;
    explicit Validated(const char* text) {
        error = str(options.parseOptions(ZString(text), &capabilities, &showUsage, false));
    }
};

std::string validate(const char* text) { return Validated(text).error; }

using ProbeMap = std::vector<std::pair<std::string, int>>;

ProbeMap probeMap() {
    ProbeMap result;
    for (int i = 0; i < ourProbe2ActivityMode.getSize(); i++)
        result.emplace_back(str(ourProbe2ActivityMode.keyAt(i)), ourProbe2ActivityMode.valueAt(i));
    return result;
}

const std::string BUILTIN = "com.corvane.probes.builtin.";
const int MISSING = -100;

// The mode of a probe in the map; a name that starts with "." is a built-in one.
int probeMode(const std::string& name) {
    int at = ourProbe2ActivityMode.indexOf(ZString((name[0] == '.' ? BUILTIN + name.substr(1) : name).c_str()));
    return at < 0 ? MISSING : ourProbe2ActivityMode.valueAt(at);
}

void expectModes(const std::vector<std::pair<std::string, int>>& expected) {
    for (auto& e : expected) EXPECT_EQ(e.second, probeMode(e.first)) << e.first;
}

// Tests that touch process-wide state put it back.
class GlobalStateTest : public ::testing::Test {
protected:
    void SetUp() override {
        mySavedCapabilities = ourCapabilities.get();
        mySavedStatus = ourStatus.get();
        mySavedProbes = probeMap();
        ourProbe2ActivityMode.clear();
    }
    void TearDown() override {
        ourCapabilities.set(mySavedCapabilities);
        ourStatus.set(mySavedStatus);
        ourProbe2ActivityMode.clear();
        for (auto& entry : mySavedProbes)
            ourProbe2ActivityMode.put(ZString(entry.first.c_str()), (PROBE_ACTIVITY_MODE)entry.second);
    }
    // Applies on ourCapabilities and returns the error and what went to stdout.
    std::pair<std::string, std::string> apply(Options& options, const char* text) {
        bool showUsage = false;
        testing::internal::CaptureStdout();
        uint64_t capabilities = ourCapabilities.get();
        std::string error = str(options.parseOptions(ZString(text), &capabilities, &showUsage, true));
        ourCapabilities.set(capabilities);
        return {error, testing::internal::GetCapturedStdout()};
    }

    Options options{commandLine({"java", "Main"})};
    uint64_t mySavedCapabilities;
    uint64_t mySavedStatus;
    ProbeMap mySavedProbes;
};

}  // namespace

TEST(OptionsTest, DefaultsComeFromTheCommandLine) {
    Options plain(commandLine({"java", "-cp", "a.jar", "com.acme.Main"}));
    EXPECT_EQ("Main", str(plain.getSessionName()));
    EXPECT_EQ(0, plain.getDelay());
    EXPECT_FALSE(plain.isNativesDisabled() || plain.isWithDebugger());

    // Index 0 is the launcher and is never searched.
    Options special(commandLine({"jboss", "-Djboss.home=/x", "-Dlib=NativeLibs4Java",
                                 "-agentlib:jdwp=transport=dt_socket", "-XX:HeapDumpPath=/dumps", "Main"}));
    EXPECT_EQ(10000, special.getDelay());
    EXPECT_TRUE(special.isNativesDisabled() && special.isWithDebugger());
    EXPECT_EQ("/dumps", str(special.getHeapDumpPath()));
    EXPECT_TRUE(special.containsVMArgument("-XX:Heap"));
    EXPECT_FALSE(special.containsVMArgument("jboss"));
    EXPECT_TRUE(special.containsSubstring("nativelibs"));
    EXPECT_FALSE(plain.getHeapDumpPath().isEmpty());  // the current directory

    Options tmp(commandLine({"java"}));
    EXPECT_EQ("/tmp/x.jar", str(tmp.getAgentTempFilePath("x.jar")));
    Validated withTmp("tmpdir=/var/t");
    EXPECT_EQ("/var/t/x.jar", str(withTmp.options.getAgentTempFilePath("x.jar")));
}

TEST(OptionsTest, CombinationsAreRefused) {
    const std::string both = "' cannot be used in combination with '";
    const std::pair<const char*, std::string> cases[] = {
        {"sampling,tracing", "'tracing" + both + "sampling'"},
        {"tracing,sampling", "'tracing" + both + "sampling'"},
        {"call_counting,tracing", "'tracing" + both + "call_counting'"},
        {"sampling,call_counting", "'sampling" + both + "call_counting'"},
        {"disableall,tracing", "'tracing" + both + "disabletracing' or 'disableall'"},
        {"call_counting,disabletracing", "'call_counting" + both + "disabletracing' or 'disableall'"},
        {"disablealloc,disable_heap_sampling,alloceach=5",
         "'alloc*' options cannot be used in combination with 'disablealloc' or 'disableall'"},
        // Heap sampling survives disableall, so allocation recording stays possible.
        {"disableall,allocsampled", ""},
        {"async_sampling_periodic",
         "'async_sampling_periodic' cannot be used: asynchronous sampling is not available on linux-x86-64"},
        // The first failure wins.
        {"foo,tracing,sampling", "foo"},
        {"tracing,,call_counting=", "call_counting="},
        {",,tracing,,monitors,", ""},
    };
    for (auto& c : cases) EXPECT_EQ(c.second, validate(c.first)) << c.first;
}

TEST(OptionsTest, NumericValuesAreChecked) {
    const std::string positive = "' value is invalid (should be positive)";
    const std::string atLeastZero = "' value is invalid (must be a number >= 0)";
    const std::string percent = "' value is invalid: usage percent should be an integer in the range 50..90";
    const std::string hours = "'telemetrylimit' value is invalid: number of hours should be >= 1";
    // A malformed number is refused by the option's own message.
    const std::pair<const char*, std::string> cases[] = {
        {"probetablelengthlimit=0", "'probetablelengthlimit" + positive}, {"deadthreadlimit=-1", "'deadthreadlimit" + positive},
        {"periodicmem=0", "'periodicmem" + positive}, {"periodichprof=-5", "'periodichprof" + positive},
        {"periodicperf=abc", "'periodicperf" + positive}, {"periodicperf=", "'periodicperf" + positive},
        {"telemetrylimit=0", hours}, {"telemetrylimit=x", hours}, {"telemetryperiod=-1", "telemetry period is invalid"},
        {"telemetry_point_limit=x", "'telemetry_point_limit' value is invalid: number of points should be >= 1"},
        {"usedmem=49", "'usedmem" + percent}, {"usedmemhprof=91", "'usedmemhprof" + percent},
        {"alloceach=-1", "'alloceach" + atLeastZero}, {"alloceach=abc", "'alloceach" + atLeastZero},
        {"allocsizelimit=-1", "'allocsizelimit" + atLeastZero},
        {"delay=-2", "'delay' is invalid"}, {"delay=abc", "'delay' is invalid"},
    };
    for (auto& c : cases) EXPECT_EQ(c.second, validate(c.first)) << c.first;

    EXPECT_EQ(-1, Validated("delay=-1").options.getDelay());
    EXPECT_EQ(250, Validated("delay=250").options.getDelay());
    EXPECT_EQ(0, Validated("ideport=abc").options.getIdePort());  // here a malformed number reads 0
}

TEST(OptionsTest, AllocationModeOnlyDefaultsFromZero) {
    Validated first("alloceach=5,alloc_object_counting");
    Validated second("alloc_object_counting,alloceach=5");
    EXPECT_EQ(16386, first.options.getAllocationMode());
    EXPECT_EQ(16386, second.options.getAllocationMode());
    EXPECT_EQ(5, second.options.getAllocEach());
    Validated plain("allocsizelimit=100");
    EXPECT_EQ(2, plain.options.getAllocationMode());
    EXPECT_EQ(100, plain.options.getAllocSizeLimit());
    // Heap sampling replaces bytecode allocation recording.
    EXPECT_EQ(0u, plain.capabilities & CAPABILITY_ALLOC_BCI);
    EXPECT_EQ(CAPABILITY_ALLOC_BCI, Validated("disable_heap_sampling").capabilities & CAPABILITY_ALLOC_BCI);
}

TEST(OptionsTest, PortsAndRanges) {
    Validated range("port=10001-10010");
    EXPECT_EQ("", range.error);
    EXPECT_EQ(10001, range.options.getLowerPort());
    EXPECT_EQ(10010, range.options.getUpperPort());
    Validated single("port=10001-10010,port=8849");
    EXPECT_EQ(8849, single.options.getLowerPort());
    EXPECT_EQ(8849, single.options.getUpperPort());
    for (const char* bad : {"port=10010-10001", "port=0", "port=65536", "port=abc", "port=-5", "port=1-2-3",
                            "port=1-x", "port=4294977297"})
        EXPECT_EQ("'port' value is invalid", validate(bad)) << bad;
    EXPECT_EQ("", validate("port=65535-65535"));

    int lower = 7, upper = 7;
    EXPECT_FALSE(parsePortOrRange(ZString("0-5"), &lower, &upper));
    EXPECT_EQ(7, lower);
}

TEST(OptionsTest, ListenValues) {
    EXPECT_EQ("'listen' is invalid: empty value", validate("listen="));
    std::string listen = validate("listen=::1");
    EXPECT_EQ(0u, listen.find("'listen' option no longer allows port"));
    EXPECT_NE(std::string::npos, listen.find("please use the dedicated option 'port'"));
    EXPECT_EQ("'listen' is invalid: value is not a valid IP address or host name", validate("listen=a_b"));
    for (const char* good : {"listen=127.0.0.1", "listen=my-host", "listen=_ab", "listen=*"})
        EXPECT_EQ("", validate(good)) << good;
    EXPECT_EQ("my-host", str(Validated("listen=my-host").options.getListen()));
}

TEST(OptionsTest, TelemetryLimitBecomesAPointCount) {
    const std::pair<const char*, int> cases[] = {
        {"telemetrylimit=2,telemetryperiod=500", 14400}, {"telemetry_point_limit=100,telemetryperiod=2000", 50},
        {"telemetrylimit=2", 7200}, {"telemetryperiod=0", 3600},
        {"telemetry_point_limit=2147483647,telemetryperiod=1", INT_MAX},
        // Hours become seconds in 64 bits: no cap below what the points can hold.
        {"telemetrylimit=1000000,telemetryperiod=1", INT_MAX}, {"telemetrylimit=1000,telemetryperiod=1000", 3600000},
    };
    for (auto& c : cases) EXPECT_EQ(c.second, Validated(c.first).options.getTelemetryLimit()) << c.first;
}

TEST(OptionsTest, QuotedValues) {
    // Either case of hexadecimal; an odd or broken tail is taken as it stands.
    for (auto& c : std::vector<std::pair<const char*, const char*>>{
             {"KZTQUOTED2f746d70", "/tmp"}, {"KZTQUOTED2F746D70", "/tmp"}, {"KZTQUOTED2", "KZTQUOTED2"},
             {"KZTQUOTED2g", "KZTQUOTED2g"}})
        EXPECT_EQ(c.second, str(Validated(("dir=" + std::string(c.first)).c_str()).options.getDir())) << c.first;
    EXPECT_EQ("a,b", str(Validated("profiler_dir=KZTQUOTED612c62").options.getProfilerDir()));
    EXPECT_EQ("", str(decodeQuotedValue(ZString("KZTQUOTED"))));
    EXPECT_EQ(std::string("a\0b", 3), str(decodeQuotedValue(ZString("KZTQUOTED610062"))));
}

TEST(OptionsTest, InternalAndDebugOptions) {
    Validated v("_anything,_tracing_clt=512,_socket_timeout_ms=12x,_agent_cp=KZTQUOTED2f61,_flag=1,debug=bci");
    EXPECT_EQ("", v.error);
    const Options& o = v.options;
    EXPECT_TRUE(o.isInternalOption("_anything"));
    EXPECT_FALSE(o.isInternalOption("_flag"));  // exact match only
    EXPECT_FALSE(o.isInternalOption("_anythin"));
    EXPECT_EQ(512, o.getInternalInt("_tracing_clt", 2048));
    EXPECT_EQ(0, o.getInternalInt("_socket_timeout_ms", -1));  // malformed is 0, not the default
    EXPECT_EQ(-1, o.getInternalInt("_page_size_missing", -1));
    EXPECT_EQ("/a", str(o.getInternalOption("_agent_cp")));
    EXPECT_EQ("", str(o.getInternalOption("_anything")));
    EXPECT_TRUE(o.isDebug("bci"));
    EXPECT_FALSE(o.isDebug("bci_times"));
    EXPECT_TRUE(Validated("debug=all").options.isDebug("progress"));
}

TEST(OptionsTest, StoredTextsAndFlags) {
    Validated v("snapshot_name_format=,sessionname=x,quiet,logdir=/l,log_file_size_limit=5,sampling_settings_path=/s,"
                "tracing_settings_path=/t,triggers=/tr,onexit=memory,withdebugger,disableoomedumper,"
                "skip_advanced_port_check,monitors,exceptions=on");
    EXPECT_EQ("", v.error);
    const Options& o = v.options;
    EXPECT_EQ("{sessionname}-{date}", str(o.getSnapshotNameFormat()));
    EXPECT_EQ("Main", str(o.getSessionName()));  // sessionname belongs to initializeLogger
    EXPECT_EQ("/s", str(o.getSamplingSettingsPath()));
    EXPECT_EQ("/t", str(o.getTracingSettingsPath()));
    EXPECT_EQ("/tr", str(o.getTriggersPath()));
    EXPECT_TRUE(o.isOnExitMemory() && !o.isOnExitSnapshot());
    EXPECT_TRUE(o.isWithDebugger() && o.isOomeDumperDisabled() && o.shouldSkipAdvancedPortCheck());
    EXPECT_TRUE(o.isMonitorProfiling());
    EXPECT_EQ(EXCEPTIONS_MODE_REQUESTED, o.getExceptionsMode());
    EXPECT_EQ(EXCEPTIONS_MODE_DISABLED, Validated("exceptions=on,disableall").options.getExceptionsMode());
    EXPECT_TRUE(Validated("help,foo").showUsage);
    EXPECT_EQ("", Validated("help,foo").error);
}

TEST(OptionsTest, TriggerTextFollowsOptionOrder) {
    Validated v("periodicperf=60,usedmem=70,periodicmem=5,usedmemhprof=90,periodichprof=10");
    EXPECT_EQ("TimerListener delay=60s\n  CapturePerformanceSnapshot\n"
              "HeapMemoryUsageListener usageThresholdPercent=70 minimumTimeToActivateMs=0 maxTriggerCount=1\n"
              "  CaptureMemorySnapshot\n"
              "TimerListener delay=5s\n  CaptureMemorySnapshot\n"
              "HeapMemoryUsageListener usageThresholdPercent=90 minimumTimeToActivateMs=0 maxTriggerCount=1\n"
              "  CaptureHprofSnapshot\n"
              "TimerListener delay=10s\n  CaptureHprofSnapshot\n",
              str(v.options.getTriggerText()));
}

TEST(OptionsTest, EnvironmentSubstitution) {
    setenv("KZT_OPT_TEST", "val", 1);
    unsetenv("KZT_OPT_UNSET");
    EXPECT_EQ("a-val-b", str(substituteEnvironmentVars(ZString("a-{KZT_OPT_TEST}-b"))));
    EXPECT_EQ("ab", str(substituteEnvironmentVars(ZString("a{KZT_OPT_UNSET}b"))));
    EXPECT_EQ("valval{KZT_OPT_TEST", str(substituteEnvironmentVars(ZString("{KZT_OPT_TEST}val{KZT_OPT_TEST"))));
    EXPECT_EQ("}x", str(substituteEnvironmentVars(ZString("}x"))));
    EXPECT_EQ("x.Sync", str(expandShortProbeName(ZString("x.Sync"))));
    EXPECT_EQ(BUILTIN + "Sync", str(expandShortProbeName(ZString(".Sync"))));
}

// ---- Apply mode: the probe map, status bits, attach ----

TEST_F(GlobalStateTest, BuiltInProbesAndTheirModes) {
    Options::addBuiltInProbes();
    EXPECT_EQ(28, ourProbe2ActivityMode.getSize());
    expectModes({{".Databases", PROBE_ACTIVITY_MODE_AUTO}, {".JPA_DataNucleus", PROBE_ACTIVITY_MODE_AUTO},
                 {".DatabasesLW", PROBE_ACTIVITY_MODE_ON}, {".Sync", PROBE_ACTIVITY_MODE_OFF},
                 {".Threads", PROBE_ACTIVITY_MODE_ON}});

    ourProbe2ActivityMode.put(ZString((BUILTIN + "CpuTracingSupport").c_str()), PROBE_ACTIVITY_MODE_ON);
    Options::removeBuiltInProbes();
    EXPECT_EQ((ProbeMap{{BUILTIN + "CpuTracingSupport", 1}}), probeMap());
}

TEST_F(GlobalStateTest, WildcardsSpareSupportProbes) {
    ourProbe2ActivityMode.put(ZString((BUILTIN + "CpuTracingSupport").c_str()), PROBE_ACTIVITY_MODE_ON);
    EXPECT_EQ("", apply(options, "probe_off=*").first);
    expectModes({{".CpuTracingSupport", PROBE_ACTIVITY_MODE_ON}, {".AgentLoadingSupport", PROBE_ACTIVITY_MODE_ON},
                 {".Threads", PROBE_ACTIVITY_MODE_OFF}});

    Options::setProbeActivityMode(ZString("*"), PROBE_ACTIVITY_MODE_REMOVE);
    EXPECT_EQ((ProbeMap{{BUILTIN + "CpuTracingSupport", 1}, {BUILTIN + "AgentLoadingSupport", 1}}), probeMap());
    // Named without a wildcard, a support probe can be switched.
    Options::setProbeActivityMode(ZString((BUILTIN + "CpuTracingSupport").c_str()), PROBE_ACTIVITY_MODE_OFF);
    EXPECT_EQ(PROBE_ACTIVITY_MODE_OFF, probeMode(".CpuTracingSupport"));
}

TEST_F(GlobalStateTest, ProbeOptionsEditTheMap) {
    auto result = apply(options, "probe_disable=.Sync,probe_auto=com.corvane.probes.builtin.J*,probe_on=com.acme.P,"
                                 "probe_off=com.acme.Q,probe_disable=com.acme.Missing,noprobe=Files,"
                                 "probe=classloading");
    EXPECT_EQ("", result.first);
    // com.acme.Q enters on, then is set off.
    expectModes({{".Sync", MISSING}, {".Files", MISSING}, {".JUnitTests", PROBE_ACTIVITY_MODE_AUTO},
                 {".JNDI", PROBE_ACTIVITY_MODE_AUTO}, {".ClassLoading", PROBE_ACTIVITY_MODE_ON},
                 {"com.acme.P", PROBE_ACTIVITY_MODE_ON}, {"com.acme.Q", PROBE_ACTIVITY_MODE_OFF},
                 {"com.acme.Missing", MISSING}});
    EXPECT_NE(std::string::npos,
              result.second.find("warning: deprecated option: \"noprobe=Files\"; using "
                                 "\"probe_disable=com.corvane.probes.builtin.Files\" instead"));

    ourProbe2ActivityMode.clear();
    Options none(commandLine({"java", "Main"}));
    EXPECT_EQ("", apply(none, "builtinprobes=none").first);
    EXPECT_EQ((ProbeMap{{BUILTIN + "AgentLoadingSupport", 1}}), probeMap());
}

TEST_F(GlobalStateTest, ApplySetsStatusBits) {
    ourStatus.set(0x10600);
    EXPECT_EQ("", apply(options, "tracing,exceptions=off,deadlocks=off").first);
    EXPECT_EQ(0x8200u, ourStatus.get());
    EXPECT_EQ("tracing,exceptions=off,deadlocks=off", str(options.getFullOptions()));

    Options all(commandLine({"java", "Main"}));
    ourStatus.set(0x10600);
    EXPECT_EQ("", apply(all, "exceptions=on,disableall").first);
    EXPECT_EQ(0u, ourStatus.get());
    EXPECT_EQ(0u, ourCapabilities.get() & (CAPABILITY_TRACING | CAPABILITY_ALLOC_BCI));
    EXPECT_EQ((ProbeMap{{BUILTIN + "AgentLoadingSupport", 1}}), probeMap());
    EXPECT_TRUE(all.isNativesDisabled());
}

TEST_F(GlobalStateTest, HprofTriggersAreRefusedOnIbmOnlyWhenApplying) {
    bool wasIbm = ourIsIbm;
    ourIsIbm = true;
    EXPECT_EQ("'periodichprof' cannot be used with IBM Java; use 'periodicmem' instead",
              apply(options, "periodichprof=10").first);
    EXPECT_EQ("", validate("periodichprof=10"));
    EXPECT_EQ("", apply(options, "periodicmem=10,usedmemhprof=80").first);
    ourIsIbm = wasIbm;
}

// The start test has the warnings of noj2ee and probe=classloading at JVM start.
TEST_F(GlobalStateTest, RetiredOptionsWarnOnlyWhenApplying) {
    const char* text = "builtinprobes=all,filters=a,samplingperiod=5,walltimespec=x,profileruipath=/ui,onlylocal";
    auto result = apply(options, text);
    EXPECT_EQ("", result.first);
    // One warning line for each retired option.
    for (const char* line :
         {"warning: deprecated option \"builtinprobes=all\" ignored; it corresponds to the default behavior\n",
          "warning: deprecated option \"filters=a\" ignored;", "warning: deprecated option \"samplingperiod=5\" ignored;",
          "warning: deprecated option \"walltimespec=x\" ignored;", "warning: obsolete option \"profileruipath=/ui\" ignored;",
          "warning: obsolete option \"onlylocal\" ignored; see description of \"listen\" for alternative\n"})
        EXPECT_NE(std::string::npos, result.second.find(line)) << line;

    testing::internal::CaptureStdout();
    EXPECT_EQ("", validate(text));
    EXPECT_EQ("", validate("noprobe=x,probe=y,noj2ee"));
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    // This one warns in validation too.
    testing::internal::CaptureStdout();
    EXPECT_EQ("", validate("noperclassgc"));
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStdout().find(
                                     "warning: deprecated option \"noperclassgc\" ignored; allocation is always "
                                     "per-class now"));
}

TEST_F(GlobalStateTest, AttachModeDifferences) {
    ourCapabilities.add(CAPABILITY_ATTACHED_AGENT);
    Options attached(commandLine({"java", "-Dx=JBoss", "Main"}));
    EXPECT_EQ(0, attached.getDelay());  // the jboss default is for a JVM start
    auto result = apply(attached, "delay=5000,probeclasspath=/a/p.JAR:/b/q.jar");
    EXPECT_EQ("", result.first);
    EXPECT_EQ(0, attached.getDelay());
    EXPECT_NE(std::string::npos, result.second.find("warning: ignoring 'delay' in attach mode"));
    EXPECT_EQ(2, attached.getProbeClassPath().getSize());
    expectModes({{".JUnitTests", MISSING}, {".TestNG", MISSING}, {".Threads", PROBE_ACTIVITY_MODE_ON}});

    EXPECT_EQ("'probeclasspath' accepts only JAR files in attach mode: /classes",
              apply(options, "probeclasspath=/a.jar:/classes").first);
    EXPECT_EQ("in attach mode 'probebootclasspath' accepts only JAR files: /boot",
              apply(options, "probebootclasspath=/boot").first);

    // The same texts are fine at JVM start.
    ourCapabilities.remove(CAPABILITY_ATTACHED_AGENT);
    Options start(commandLine({"java", "Main"}));
    EXPECT_EQ("", apply(start, "delay=5000,probebootclasspath=/boot:/x.jar").first);
    EXPECT_EQ(5000, start.getDelay());
    EXPECT_EQ(2, start.getProbeBootClassPath().getSize());
    EXPECT_EQ(PROBE_ACTIVITY_MODE_ON, probeMode(".JUnitTests"));
}

TEST_F(GlobalStateTest, ValidationChangesNoGlobalState) {
    ourProbe2ActivityMode.put(ZString("com.acme.P"), PROBE_ACTIVITY_MODE_AUTO);
    ourCapabilities.add(CAPABILITY_ATTACHED_AGENT);  // validation works on its own word
    uint64_t capabilities = ourCapabilities.get(), status = ourStatus.get();
    ProbeMap probes = probeMap();
    Validated v("tracing,disableall,exceptions=on,deadlocks=off,disablestacktelemetry,probe_disable=*,"
                "probe_on=com.acme.X,builtinprobes=none,delay=50,probeclasspath=/dir");
    EXPECT_EQ("'tracing' cannot be used in combination with 'disabletracing' or 'disableall'", v.error);
    EXPECT_EQ(capabilities, ourCapabilities.get());
    EXPECT_EQ(status, ourStatus.get());
    EXPECT_EQ(probes, probeMap());
    EXPECT_EQ(0u, v.capabilities & CAPABILITY_TRACING);  // the local word was edited
    EXPECT_EQ("", str(v.options.getFullOptions()));
    EXPECT_EQ(50, v.options.getDelay());
}

// ---- The early scan for the log ----

// The logger's settings go back with the captured log's end; two debug flags here.
TEST(LoggerOptionsTest, SetsTheLoggerStatics) {
    CapturedLog log;
    bool savedExitOnException = Logger::ourShouldExitOnException, savedDebugPS = Logger::ourDebugPS;
    setenv("KZT_OPT_TEST", "env", 1);
    Options options(commandLine({"java", "-cp", "x", "com.acme.App"}));
    options.initializeLogger(ZString("log_file_size_limit=10240,logdir=KZTQUOTED2f6c2c67,"
                                     "sessionname={default}-{KZT_OPT_TEST},united_log,log_sys_time,quiet,"
                                     "_exit_on_exception,_ps,foo"));
    EXPECT_EQ(1048576, Logger::ourLogFileSizeLimit);
    EXPECT_EQ("/l,g", str(Logger::ourCustomLogDirectory));
    EXPECT_EQ("App-env", str(Logger::ourSessionNameFromOptions));
    EXPECT_EQ("App-env", str(options.getSessionName()));
    EXPECT_TRUE(Logger::ourUnitedLog && Logger::ourWithSystemTime && Logger::ourQuiet &&
                Logger::ourShouldExitOnException && Logger::ourDebugPS);
    EXPECT_FALSE(Logger::ourLogFileCreated);

    options.initializeLogger(ZString("log_file_size_limit=10241,sessionname={KZT_OPT_UNSET}"));
    EXPECT_EQ(10241, Logger::ourLogFileSizeLimit);
    EXPECT_EQ("App-env", str(Logger::ourSessionNameFromOptions));  // an empty result keeps the name

    Options plain(commandLine({"java", "-cp", "x", "com.acme.App"}));
    plain.initializeLogger(ZString(""));
    EXPECT_EQ("App", str(Logger::ourSessionNameFromOptions));
    Logger::ourShouldExitOnException = savedExitOnException;
    Logger::ourDebugPS = savedDebugPS;
}
