// The settings of CPU sampling ("sampling.txt" or a text given at start):
// the period and the methods that count wall time.
#pragma once

#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class SamplingSettings {
public:
    static const char* const DEFAULT_TEXT;

    SamplingSettings() { setDefaults(); }

    // Numbers from the defaults, wall-time lines from `text` alone; logs the result.
    void setFromText(const ZString& text);

    // First member, as in TracingSettings: the wall-time patterns.
    ZVectorSafe<ZString> myWallTimeSpecs;
    int mySamplingPeriodMs;
    // Parsed and kept; nothing reads it yet.
    int myCpuThresholdMs;

private:
    void setDefaults();
    void addFromText(const ZString& text);
};

extern SamplingSettings ourSamplingSettings;

// The given text, or "sampling.txt" of the settings folder, or the default.
ZString getSamplingSettingsText(const ZString* text);
