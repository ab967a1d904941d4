// The agent's diagnostic log and its fatal assertion. Every subsystem reports
// through here; Logger::error is the one way a broken precondition ends an
// operation, by throwing KZTRuntimeException up to the nearest JVM boundary.
#pragma once

#include <cstdio>

#include "foundation/Failure.h"
#include "foundation/ZString.h"
#include "foundation/ZStringSet.h"

class Logger {
public:
    static int ourLogFileSizeLimit;
    static bool ourUnitedLog;
    static bool ourLogToStderr;
    static bool ourLogFileCreated;
    static ZString& ourLogFilePath;
    static ZString& ourCustomLogDirectory;
    static ZString& ourSessionNameFromOptions;
    static bool ourQuiet;
    static bool ourQuietErrorMode;
    static bool ourWithSystemTime;
    static bool ourDebugPS;
    static bool ourShouldExitOnException;

    // Writes one line to the log and, unless quiet, also to `stream` (stdout or
    // stderr) when that is not null. An empty text does nothing.
    static void message(const ZString& text, FILE* stream = nullptr);
    static void message(const char* text, FILE* stream = nullptr);
    static void messageWithStats(const ZString& text);
    // Logs the text and, unless quiet, shows it on stderr behind the
    // product's banner: for what the user of the application should see.
    static void notice(const ZString& text);
    static void printToConsole(FILE* stream, const ZString& text);

    [[noreturn]] static void error(const ZString& text, const char* file, int line);
    [[noreturn]] static void error(const char* text, const char* file, int line);

    static void exceptionCaught(const char* file, int line);
    // Makes the foundation's failures and messages go to this log.
    static void installFailureReporting();
    static void dumpStack(const char* text);

    // Forgets the open file so that the next message opens the log anew.
    static void resetForTests();

private:
    static void openLogFile();
    static void writeHeader(const ZString& oldPath);
    static void writeLine(FILE* target, const ZString& text, bool toConsole);
};

void appendStackTrace(ZString& text);

// Logs at most 20 distinct messages, each once.
class LimitedLogger : public ZStringSet {
public:
    void message(const ZString& text);
};
