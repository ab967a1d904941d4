#include "services/Logger.h"

#include <pthread.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <cstdlib>

#include "foundation/System.h"
#include "foundation/UptimeProvider.h"
#include "foundation/ZVector.h"
#include "session/SessionName.h"

static const char* const PRODUCT_BANNER = "[Corvane Java Profiler 2019.8-b109] ";

int Logger::ourLogFileSizeLimit = 1048576;
bool Logger::ourUnitedLog = false;
bool Logger::ourLogToStderr = false;
bool Logger::ourLogFileCreated = false;
// Immortal: agent threads may still log while the process runs its exit handlers.
ZString& Logger::ourLogFilePath = *new ZString();
ZString& Logger::ourCustomLogDirectory = *new ZString();
ZString& Logger::ourSessionNameFromOptions = *new ZString();
bool Logger::ourQuiet = false;
bool Logger::ourQuietErrorMode = false;
bool Logger::ourWithSystemTime = false;
bool Logger::ourDebugPS = false;
bool Logger::ourShouldExitOnException = false;

static FILE* ourLogFile = nullptr;
static bool ourStderrModeDecided = false;
// Serialises messages, so that a log file is never closed under a writer.
// Recursive: opening a file writes its header through message().
static pthread_mutex_t ourLogMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

class LogMutexHolder {
public:
    LogMutexHolder() { pthread_mutex_lock(&ourLogMutex); }
    ~LogMutexHolder() { pthread_mutex_unlock(&ourLogMutex); }
};

static void getJvmArguments(ZVectorSafe<ZString>& arguments) {
    getCommandLineParameters(arguments);
}

static bool shouldLogToStdErr() {
    ZVectorSafe<ZString> arguments;
    getJvmArguments(arguments);
    for (int i = 1; i < arguments.getSize(); i++) {
        if (arguments[i].equals("-Dqv.logger.stdErrOnly=true") || arguments[i].equals("-host-server")) return true;
    }
    return false;
}

static ZString formatLinePrefix(int64_t uptimeMs, bool withPid) {
    char prefix[128];
    ZString systemTime;
    if (Logger::ourWithSystemTime) systemTime = ZString(" ") + getCurrentDateTimeVerbose();
    int seconds = (int)(uptimeMs / 1000);
    int millis = (int)(uptimeMs % 1000);
    if (withPid) {
        snprintf(prefix, sizeof(prefix), "%d 19.8-109 %d.%.3d%s: ", z_getpid(), seconds, millis, systemTime.c_str());
    } else {
        snprintf(prefix, sizeof(prefix), "19.8-109 %d.%.3d%s: ", seconds, millis, systemTime.c_str());
    }
    return ZString(prefix);
}

void Logger::message(const char* text, FILE* stream) {
    message(ZString(text), stream);
}

void Logger::message(const ZString& text, FILE* stream) {
    int64_t uptimeMs = ourUptimeProvider.getUptimeMs();
    if (text.isEmpty()) return;
    LogMutexHolder holder;
    if (!ourStderrModeDecided) {
        ourStderrModeDecided = true;
        ourLogToStderr = shouldLogToStdErr();
    }
    if (!ourLogToStderr) {
        if (ourUnitedLog && ourLogFile != nullptr && ftell(ourLogFile) > ourLogFileSizeLimit) ourLogFileCreated = false;
        if (!ourLogFileCreated) openLogFile();
    }
    FILE* target = ourLogToStderr ? nullptr : ourLogFile;
    if (target == nullptr) {
        if (ourQuiet) return;
        target = stderr;
    }
    bool toConsole = target == stdout || target == stderr;
    ZString line = formatLinePrefix(uptimeMs, ourUnitedLog && !toConsole);
    line.append(text).appendChar('\n');
    writeLine(target, line, toConsole);
    if (stream != nullptr && !ourQuiet && stream != target) {
        writeLine(stream, formatLinePrefix(uptimeMs, false) + text + "\n", true);
    }
}

void Logger::writeLine(FILE* target, const ZString& line, bool toConsole) {
    if (toConsole) {
        printToConsole(target, line);
    } else {
        fwrite(line.c_str(), 1, line.getLength(), target);
        fflush(target);
    }
}

void Logger::printToConsole(FILE* stream, const ZString& text) {
    const char* chars = text.c_str();
    int length = text.getLength();
    bool needsCopy = false;
    for (int i = 0; i < length && !needsCopy; i++) {
        if (chars[i] == 0 || ((unsigned char)chars[i] == 0xC0 && i + 1 < length && (unsigned char)chars[i + 1] == 0x80))
            needsCopy = true;
    }
    if (!needsCopy) {
        fwrite(chars, 1, length, stream);
    } else {
        // Modified UTF-8 spells NUL as C0 80: both print as "."
        ZString copy(length + 1);
        for (int i = 0; i < length; i++) {
            if (chars[i] == 0) {
                copy.appendChar('.');
            } else if ((unsigned char)chars[i] == 0xC0 && i + 1 < length && (unsigned char)chars[i + 1] == 0x80) {
                copy.appendChar('.');
                i++;
            } else {
                copy.appendChar(chars[i]);
            }
        }
        fwrite(copy.c_str(), 1, copy.getLength(), stream);
    }
    fflush(stream);
}

// In united mode processes share numbered files: start from the largest
// number present, at least 1.
static long long findLargestUnitedLogNumber(const ZString& folder, const ZString& base) {
    ZVectorSafe<ZString> names;
    FileSearch::listFiles(folder.c_str(), names);
    long long number = 1;
    for (int i = 0; i < names.getSize(); i++) {
        const ZString& name = names[i];
        if (!name.startsWith(base) || !name.endsWith(".log")) continue;
        ZString stem = name.cutPostfix(".log");
        int dot = stem.lastIndexOfChar('.');
        if (dot < 0) continue;
        bool failed = false;
        long long value = stem.substring(dot + 1).parseLong(&failed);
        if (!failed && value > number) number = value;
    }
    return number;
}

void Logger::openLogFile() {
    ourLogFileCreated = true;
    if (z_getenv("CORVANE_UNITED_LOG").equals("1")) ourUnitedLog = true;
    ZString oldPath;
    if (ourLogFile != nullptr) {
        ZString line = formatLinePrefix(ourUptimeProvider.getUptimeMs(), ourUnitedLog) + "warning: log file will be changed\n";
        fwrite(line.c_str(), 1, line.getLength(), ourLogFile);
        fclose(ourLogFile);
        ourLogFile = nullptr;
        oldPath = ourLogFilePath;
    }
    ZString folder = ourCustomLogDirectory.isEmpty() ? getFilePathInAppSettings("log") : ourCustomLogDirectory;
    z_mkdirs(folder);
    if (ourSessionNameFromOptions.isEmpty()) {
        ZVectorSafe<ZString> arguments;
        getJvmArguments(arguments);
        ourSessionNameFromOptions = getSessionNameByCommandLine(&arguments, true);
    }
    ZString base = toFileNamePart(ourSessionNameFromOptions);
    if (!ourUnitedLog) {
        ourLogFilePath = folder + "/" + base + "-" + ZString::fromLong(z_getpid()) + ".log";
        ourLogFile = z_fopen(ourLogFilePath.c_str(), "a");
    } else {
        // A file over the limit, or one that cannot be opened, moves on to the next number.
        long long number = findLargestUnitedLogNumber(folder, base);
        for (int attempt = 0; attempt < 1000 && ourLogFile == nullptr; attempt++, number++) {
            ourLogFilePath = folder + "/" + base + "." + ZString::fromLong(number) + ".log";
            if (getFileSize(ourLogFilePath.c_str()) > ourLogFileSizeLimit) continue;
            ourLogFile = z_fopen(ourLogFilePath.c_str(), "a");
        }
    }
    if (!ourQuiet) {
        ZString notice(PRODUCT_BANNER);
        if (ourLogFile != nullptr) {
            notice.append("Log file: ").append(ourLogFilePath);
        } else {
            notice.append("Cannot create log file: ").append(ourLogFilePath).append("\n");
            notice.append(ourCustomLogDirectory.isEmpty()
                              ? "  To specify alternate log directory use startup option 'logdir'"
                              : "  Note: the log directory was altered using startup option 'logdir'");
        }
        fputs(notice.append("\n").c_str(), stderr);
        fflush(stderr);
    }
    writeHeader(oldPath);
}

void Logger::writeHeader(const ZString& oldPath) {
    if (ourLogFile != nullptr) message(ZString("Log file: ") + ourLogFilePath);
    if (!oldPath.isEmpty()) message(ZString("warning: log file changed from ") + oldPath);
    ZVectorSafe<ZString> arguments;
    getJvmArguments(arguments);
    ZString commandLine("Command line:");
    for (int i = 0; i < arguments.getSize(); i++) commandLine.append("\n  ").append(arguments[i]);
    message(commandLine);
    message(ZString("Executable: ") + getExecutablePath(z_getpid()));
    struct utsname names;
    if (uname(&names) == 0) {
        ZString text("uname:");
        text.append("\n  sysname: ").append(names.sysname);
        text.append("\n  release: ").append(names.release);
        text.append("\n  version: ").append(names.version);
        text.append("\n  machine: ").append(names.machine);
        message(text);
    }
    message(ZString("Linux; ") + getPresentablePlatformName() + "; 64-bit process");
    message(is64BitMachine() ? " 64-bit machine" : " 32-bit machine");
    message(ZString("Today is ") + getCurrentDateAsYYYYMMDD());
    message("full_build_stamp: 2019.8.109 201908051358");
    message(ZString("Agent library path: ") + getAgentLibraryPath());
    if (ourDebugPS || z_getenv("Z_PS").equals("1")) message(getDebugPSMessage());
    message(ZString("getTimeNsInfo: \"") + getTimeNsInfo() + "\"");
}

void Logger::notice(const ZString& text) {
    message(text);
    // A log that goes to stderr has shown the line already.
    if (ourQuiet || text.isEmpty() || ourLogToStderr || ourLogFile == nullptr) return;
    printToConsole(stderr, ZString(PRODUCT_BANNER) + text + "\n");
}

void Logger::messageWithStats(const ZString& text) {
    int64_t memory = getProcessMemoryUsage();
    int64_t physical = getProcessPhysicalMemoryUsage();
    ZString line("[m: ");
    if (memory == -1) line.append("?"); else line.appendLong(memory / (1024 * 1024));
    line.appendChar(' ');
    if (physical == -1) line.append("?"); else line.appendLong(physical / (1024 * 1024));
    line.append("] ").append(text);
    message(line);
}

void appendStackTrace(ZString& text) {
    text.append("\n  <getting stack trace is not supported on ").append(getPresentablePlatformName()).append(">");
}

void Logger::error(const char* text, const char* file, int line) {
    error(ZString(text), file, line);
}

static void reportFailure(const char* text, const char* file, int line) {
    if (Logger::ourQuietErrorMode) return;
    ZString full("error at ");
    full.append(file).append(":").appendLong(line).append(": ").append(text);
    appendStackTrace(full);
    Logger::message(full);
}

static void reportMessageToLog(const char* text) {
    Logger::message(text);
}

void Logger::installFailureReporting() {
    ::installFailureReporting({reportFailure, reportMessageToLog});
}

void Logger::error(const ZString& text, const char* file, int line) {
    reportFailure(text.c_str(), file, line);
    throw KZTRuntimeException();
}

void Logger::exceptionCaught(const char* file, int line) {
    ZString text("error: exception caught at ");
    text.append(file).append(":").appendLong(line);
    messageWithStats(text);
    if (ourShouldExitOnException) {
        messageWithStats(ZString("error: exiting immediately due to _exit_on_exception"));
        _exit(1);
    }
}

void Logger::dumpStack(const char* text) {
    ZString full("Stack dump");
    if (text != nullptr && *text != 0) full.append(": ").append(text);
    appendStackTrace(full);
    message(full);
}

void Logger::resetForTests() {
    if (ourLogFile != nullptr) fclose(ourLogFile);
    ourLogFile = nullptr;
    ourLogFileCreated = false;
    ourStderrModeDecided = false;
    ourLogToStderr = false;
}

void LimitedLogger::message(const ZString& text) {
    if (getSize() >= 20) return;
    if (!add(text)) return;
    if (getSize() == 20) {
        Logger::message(text + "\n    (further similar messages will be skipped...)");
    } else {
        Logger::message(text);
    }
}
