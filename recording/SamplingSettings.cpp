#include "recording/SamplingSettings.h"

#include "services/Logger.h"
#include "services/Options.h"
#include "foundation/System.h"
#include "recording/TracingSettings.h"

const char* const SamplingSettings::DEFAULT_TEXT =
    "walltime=java.io.RandomAccessFile : readBytes(byte[], int, int)\n"
    "walltime=java.io.RandomAccessFile : read()\n"
    "walltime=java.io.RandomAccessFile : write(int)\n"
    "walltime=java.io.RandomAccessFile : writeBytes(byte[], int, int)\n"
    "walltime=java.net.SocketInputStream : socketRead0(java.io.FileDescriptor, byte[], int, int, int)\n"
    "walltime=java.net.SocketOutputStream : socketWrite0(java.io.FileDescriptor, byte[], int, int)\n"
    "walltime=java.lang.Thread : sleep(*)\n"
    "\n"
    "sampling_period_ms=20\n";

SamplingSettings ourSamplingSettings;

void SamplingSettings::setDefaults() {
    mySamplingPeriodMs = 20;
    myCpuThresholdMs = 10;
}

// A positive number, clamped to the int range; anything else leaves `value`.
static void takePositive(const ZString& text, int* value) {
    bool failed = false;
    long long number = text.parseLong(&failed);
    if (failed || number <= 0) return;
    *value = number > 0x7fffffff ? 0x7fffffff : (int)number;
}

void SamplingSettings::addFromText(const ZString& text) {
    parseSettingsLines(text, myWallTimeSpecs, [&](const ZString& line) {
        ZString rest;
        if (ZString::isPrefix(line, "sampling_period_ms=", &rest)) {
            takePositive(rest, &mySamplingPeriodMs);
        } else if (ZString::isPrefix(line, "cpu_threshold_ms=", &rest)) {
            takePositive(rest, &myCpuThresholdMs);
        }
    });
}

void SamplingSettings::setFromText(const ZString& text) {
    setDefaults();
    addFromText(ZString(DEFAULT_TEXT));
    // The defaults give the numbers, the text alone the wall-time lines.
    myWallTimeSpecs.clear();
    addFromText(text);
    ZString message("SamplingSettings: sampling_period_ms = ");
    message.appendLong(mySamplingPeriodMs);
    logSettingsMessage(message, text, DEFAULT_TEXT);
}

ZString getSamplingSettingsText(const ZString* text) {
    if (text != nullptr) return *text;
    return readConfigFromFile(ourOptions.getSamplingSettingsPath(), "sampling.txt", SamplingSettings::DEFAULT_TEXT);
}
