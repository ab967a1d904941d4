// The foundation's way out of a broken precondition, and the way its few
// messages reach the log. The logger installs both at start; until then a
// failure only throws and a message is dropped, so the foundation stands on
// its own in tools and tests.
#pragma once

// The one exception type of the system. Thrown by every fatal failure, caught
// at the boundaries with the JVM (natives, event handlers, agent threads).
class KZTRuntimeException {};

struct FailureReporting {
    // Records a broken precondition at a source position; the caller throws.
    void (*myReportFailure)(const char* text, const char* file, int line);
    // Writes one line to the log.
    void (*myReportMessage)(const char* text);
};

void installFailureReporting(const FailureReporting& reporting);

// Reports and throws KZTRuntimeException.
[[noreturn]] void failFatal(const char* text, const char* file, int line);
// A line for the log, when a logger is installed.
void reportMessage(const char* text);

// The containers' and strings' own failures, labelled as their messages are.
[[noreturn]] void zstringFail(int line);
[[noreturn]] void zvectorFail(const char* label, int a, int b);
[[noreturn]] void zmapFail(int line);

// Fatal assertions, labelled with the source name and line.
#define KZT_ASSERT(cond)                                                  \
    do {                                                                  \
        if (!(cond)) failFatal("assertion failed", __FILE__, __LINE__);   \
    } while (0)
#define KZT_ASSERT_NOT_NULL(p)                                                          \
    do {                                                                                \
        if ((p) == nullptr) failFatal("assertion failed: value is NULL", __FILE__, __LINE__); \
    } while (0)
