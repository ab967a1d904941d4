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
// Each line of a settings text: "walltime=" lines append their pattern to
// `patterns`, any other line goes to `other`.
template <typename F>
void parseSettingsLines(const ZString& text, ZVectorSafe<ZString>& patterns, F other) {
    ZVectorSafe<ZString> lines;
    splitConfigFile(&lines, text);
    for (const ZString& line : lines) {
        ZString rest;
        if (ZString::isPrefix(line, "walltime=", &rest)) patterns.push(rest);
        else other(line);
    }
}

// Logs a settings line, then " (default)" or the text that was given.
void logSettingsMessage(ZString& message, const ZString& text, const char* defaultText);

// A method filter: a method pattern (db/SignatureUtil.h) of which the class,
// method and parameter parts count; a pattern without ":" means every
// method of the classes.
class Filter {
public:
    enum : int { WALL_TIME = 1, EXCLUSIVE = 2, INCLUSIVE = 3 };

    static bool ourAlwaysWallTime;

    Filter(int type, const char* classPattern, const char* methodPattern, const char* parametersPattern)
        : myType(type), myClassPattern(classPattern), myMethodPattern(methodPattern),
          myParametersPattern(parametersPattern) {}

    // Null for a pattern that can't be read, with a warning.
    static Filter* createFilter(const ZString& pattern, int type);
    bool accept(const ZString& className, const ZString& name, const ZString& parameters) const;
    bool acceptClass(const ZString& className) const;
    int getType() const { return myType; }

    // One filter a line: "+" ahead makes it inclusive, else exclusive.
    // Empty and unreadable lines are skipped.
    static void createInclusiveAndExclusiveFiltersFromSpec(const ZVectorSafe<ZString>* lines,
                                                           ZVector<Filter*>* result);

    // Replaces the wall-time filters and applies them to every method.
    static void reloadFilters(const LockHolder& lock, const ZVectorSafe<ZString>& patterns);
    // Sets the timing flags of one method; adaptive exclusions are taken back.
    static void applyFilters(const LockHolder& lock, int method, MethodRecord* record);
    static bool isWallTimed(int method);

private:
    int myType;
    ZString myClassPattern;
    ZString myMethodPattern;
    ZString myParametersPattern;
};
