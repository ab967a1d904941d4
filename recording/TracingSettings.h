// The settings of CPU tracing ("tracing.txt" or a text given at start) and
// the wall-time filters that decide which methods count wall time instead
// of CPU time.
#pragma once

#include "db/DBRecords.h"
#include "foundation/System.h"
#include "foundation/ZLock.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class TracingSettings {
public:
    static const char* const DEFAULT_TEXT;

    TracingSettings() { setDefaults(); }

    // Numbers from the defaults, wall-time lines from `text` alone; logs the result.
    void setFromText(const ZString& text);

    ZVectorSafe<ZString> myWallTimeSpecs;
    bool myAdaptive;
    int myAdaptiveMinMethodInvocationCount;
    int myAdaptiveMaxAverageMethodTimeNs;
    double myAdaptiveMinMethodTimePercent;

private:
    void setDefaults();
    void addFromText(const ZString& text);
};

extern TracingSettings ourTracingSettings;

// The given text, or "tracing.txt" of the settings folder, or the default.
ZString getTracingSettingsText(const ZString* text);
// Each line of a settings text: "walltime=" lines append their spec to
// `specs`, any other line goes to `other`.
template <typename F>
void parseSettingsLines(const ZString& text, ZVectorSafe<ZString>& specs, F other) {
    ZVectorSafe<ZString> lines;
    splitConfigFile(&lines, text);
    for (const ZString& line : lines) {
        ZString rest;
        if (ZString::isPrefix(line, "walltime=", &rest)) specs.push(rest);
        else other(line);
    }
}

// Logs a settings line, then " (default)" or the text that was given.
void logSettingsMessage(ZString& message, const ZString& text, const char* defaultText);

// A wall-time filter: "class : method(parameters)" with wildcards; a spec
// without ":" means every method of the classes.
class Filter {
public:
    static bool ourAlwaysWallTime;

    // Null for a spec that can't be read, with a warning.
    static Filter* createFilter(const ZString& spec);
    bool accept(const ZString& className, const ZString& name, const ZString& parameters) const;

    // Replaces the wall-time filters and applies them to every method.
    static void reloadFilters(const LockHolder& lock, const ZVectorSafe<ZString>& specs);
    // Sets the timing flags of one method; adaptive exclusions are taken back.
    static void applyFilters(const LockHolder& lock, int method, MethodRecord* record);
    static bool isWallTimed(int method);

private:
    Filter(const ZString& classPattern, const ZString& methodPattern, const ZString& parametersPattern)
        : myClassPattern(classPattern), myMethodPattern(methodPattern), myParametersPattern(parametersPattern) {}

    ZString myClassPattern;
    ZString myMethodPattern;
    ZString myParametersPattern;
};
