#include "foundation/Failure.h"

#include <cstdio>

static FailureReporting ourFailureReporting = {nullptr, nullptr};

void installFailureReporting(const FailureReporting& reporting) {
    ourFailureReporting = reporting;
}

void failFatal(const char* text, const char* file, int line) {
    if (ourFailureReporting.myReportFailure != nullptr) ourFailureReporting.myReportFailure(text, file, line);
    throw KZTRuntimeException();
}

void reportMessage(const char* text) {
    if (ourFailureReporting.myReportMessage != nullptr) ourFailureReporting.myReportMessage(text);
}

void zstringFail(int line) {
    failFatal("assertion failed", "ZString", line);
}

void zvectorFail(const char* label, int a, int b) {
    char text[160];
    snprintf(text, sizeof(text), "op=%s %d %d", label, a, b);
    failFatal(text, "ZVector", 0);
}

void zmapFail(int line) {
    failFatal("assertion failed", "ZMap", line);
}
