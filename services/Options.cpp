#include "services/Options.h"

#include <climits>
#include <cstdio>

#include "services/AgentState.h"
#include "services/Logger.h"
#include "foundation/System.h"
#include "session/SessionName.h"

const char* const STARTUP_OPTIONS_HELP_URL = "https://github.com/corvane/corvane#startup-options";

// Built on first use and never destroyed: JVM threads may still read the
// options while the process exits.
static Options& globalOptions() {
    static Options* options = new Options();
    return *options;
}

Options& ourOptions = globalOptions();

Options::Options() {
    getCommandLineParameters(myCommandLine);
    setDefaults();
}

Options::Options(const ZVectorSafe<ZString>& commandLine) : myCommandLine(commandLine) {
    setDefaults();
}

void Options::setDefaults() {
    myDebugAll = false;
    myDefaultSessionName = getSessionNameByCommandLine(&myCommandLine, true);
    mySessionName = myDefaultSessionName;
    mySnapshotNameFormat = "{sessionname}-{date}";

    mySampling = false;
    myTracing = false;
    myCallCounting = false;
    mySamplingMode = 0;
    // That library breaks when its natives are wrapped.
    myDisableNatives = containsSubstring("nativelibs4java");
    myAllocEach = 10;
    myAllocSizeLimit = 4096;
    myAllocationMode = 0;
    myMonitors = false;
    myWithDebugger = containsVMArgument("-Xdebug") || containsVMArgument("-Xrunjdwp") ||
                     containsVMArgument("-agentlib:jdwp");

    myTelemetryLimit = 3600;
    myProbeTableLengthLimit = 100000;
    myDeadThreadLimit = 50;
    myDisableOomeDumper = false;
    // JBoss deploys for a while after start; let it settle first.
    myDelay = !isAttaching() && containsSubstring("jboss") ? 10000 : 0;
    myTelemetryPeriod = 1000;
    myLowerPort = -1;
    myUpperPort = -1;
    mySkipAdvancedPortCheck = false;

    myListen = "localhost";
    myIdePort = -1;
    myOnExitMemory = false;
    myOnExitSnapshot = false;
    myExceptionsMode = EXCEPTIONS_MODE_DEFAULT;
}

// ---- Logging options, read before anything else is logged ----

void Options::initializeLogger(const ZString& options) {
    ZVectorSafe<ZString> entries;
    options.split(",", entries);
    for (const ZString& entry : entries) {
        ZString value;
        if (ZString::isPrefix(entry, "logdir=", &value)) {
            Logger::ourCustomLogDirectory = decodeQuotedValue(value);
        } else if (ZString::isPrefix(entry, "sessionname=", &value)) {
            ZString name = decodeQuotedValue(value).replaceAll("{default}", myDefaultSessionName.c_str());
            name = substituteEnvironmentVars(name);
            if (!name.isEmpty()) mySessionName = name;
        } else if (ZString::isPrefix(entry, "log_file_size_limit=", &value)) {
            long long limit = decodeQuotedValue(value).parseLong();
            if (limit >= 10241 && limit <= INT_MAX) Logger::ourLogFileSizeLimit = (int)limit;
        } else if (entry == "united_log") {
            Logger::ourUnitedLog = true;
        } else if (entry == "log_sys_time") {
            Logger::ourWithSystemTime = true;
        } else if (entry == "quiet") {
            Logger::ourQuiet = true;
        } else if (entry == "_exit_on_exception") {
            Logger::ourShouldExitOnException = true;
        } else if (entry == "_ps") {
            Logger::ourDebugPS = true;
        }
    }
    Logger::ourSessionNameFromOptions = mySessionName;
    Logger::ourLogFileCreated = false;
}

// ---- Entry from the load routine ----

bool Options::applyOptions(const ZString& options) {
    bool showUsage = false;
    uint64_t capabilities = ourCapabilities.get();
    ZString error = parseOptions(options, &capabilities, &showUsage, true);
    ourCapabilities.set(capabilities);
    if (showUsage) {
        printUsage();
        return false;
    }
    if (!error.isEmpty()) {
        Logger::message(ZString("Cannot start: invalid option: ") + error, stdout);
        printUsage();
        return false;
    }
    return true;
}

void Options::printUsage() {
    ZString text(
        "\nCorvane Java Profiler 2019.8-b109 JVMTI agent usage: -agentpath:<path to agent library>=[<option>, ...]\n"
        "\nAvailable options are described here:\n");
    text.append(STARTUP_OPTIONS_HELP_URL);
    puts(text.c_str());
    fflush(stdout);
}

// ---- Internal and debug options ----

bool Options::isInternalOption(const char* name) const {
    for (const ZString& option : myInternalOptions)
        if (option == name) return true;
    return false;
}

bool Options::findInternalValue(const char* name, ZString* value) const {
    ZString prefix(name);
    prefix.appendChar('=');
    for (const ZString& option : myInternalOptions)
        if (ZString::isPrefix(option, prefix.c_str(), value)) return true;
    return false;
}

int Options::getInternalInt(const char* name, int defaultValue) const {
    ZString value;
    if (!findInternalValue(name, &value)) return defaultValue;
    return value.parseInt();
}

ZString Options::getInternalOption(const char* name) const {
    ZString value;
    if (!findInternalValue(name, &value)) return ZString();
    return decodeQuotedValue(value);
}

bool Options::isDebug(const char* category) const {
    return myDebugAll || myDebugCategories.contains(ZString(category));
}

// ---- JVM arguments ----

bool Options::containsVMArgument(const char* prefix) const {
    for (int i = 1; i < myCommandLine.getSize(); i++)
        if (myCommandLine[i].startsWith(prefix)) return true;
    return false;
}

bool Options::containsSubstring(const char* lowerCaseText) const {
    for (int i = 1; i < myCommandLine.getSize(); i++)
        if (myCommandLine[i].toLowerCase().contains(lowerCaseText)) return true;
    return false;
}

ZString Options::getHeapDumpPath() const {
    ZString path;
    for (int i = 1; i < myCommandLine.getSize(); i++)
        if (ZString::isPrefix(myCommandLine[i], "-XX:HeapDumpPath=", &path)) return path;
    return z_getcwd();
}

ZString Options::getAgentTempFilePath(const char* name) const {
    return getTempFilePath(myTmpDir, name);
}

// ---- Value helpers ----

static int hexDigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

ZString decodeQuotedValue(const ZString& value) {
    static const char PREFIX[] = "KZTQUOTED";
    const int prefixLength = sizeof(PREFIX) - 1;
    if (!value.startsWith(PREFIX) || (value.getLength() - prefixLength) % 2 != 0) return value;
    ZString decoded;
    for (int i = prefixLength; i < value.getLength(); i += 2) {
        int high = hexDigitValue(value[i]);
        int low = hexDigitValue(value[i + 1]);
        if (high < 0 || low < 0) return value;
        decoded.appendChar((char)(high * 16 + low));
    }
    return decoded;
}

ZString substituteEnvironmentVars(const ZString& text) {
    ZString result;
    int position = 0;
    for (;;) {
        int open = text.indexOfChar('{', position);
        if (open < 0) break;
        int close = text.indexOfChar('}', open + 1);
        if (close < 0) break;
        result.append(text.c_str() + position, open - position);
        result.append(z_getenv(text.substring(open + 1, close).c_str()));
        position = close + 1;
    }
    result.append(text.c_str() + position, text.getLength() - position);
    return result;
}

bool isValidPort(long long port) {
    return port >= 1 && port <= 65535;
}

bool parsePortOrRange(const ZString& text, int* lower, int* upper) {
    KZT_ASSERT_NOT_NULL(lower);
    KZT_ASSERT_NOT_NULL(upper);
    ZVectorSafe<ZString> tokens;
    text.split("-", tokens);
    long long low, high;
    if (tokens.getSize() == 2) {
        low = tokens[0].parseLong();
        high = tokens[1].parseLong();
    } else {
        low = high = text.parseLong();
    }
    if (!isValidPort(low) || !isValidPort(high) || low > high) return false;
    *lower = (int)low;
    *upper = (int)high;
    return true;
}
