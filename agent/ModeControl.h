// Profiling mode control: the switches of the recording modes in ourStatus,
// reached from the UI, triggers, startup options and the API through the
// same natives of com.corvane.runtime.Callback.
#pragma once

#include <jni.h>
#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/ZString.h"

// Empty on success, else the text for the caller. `settings` null: the
// settings file of the mode.
ZString startCpuProfiling(JNIEnv* env, int64_t mode, const ZString* settings);
// Does nothing while CPU profiling is off.
void stopCpuProfiling(JNIEnv* env, bool force);

// Empties the telemetry table; the property "kzt.telemetry.new.start.index"
// tells where the rows begin again.
void clearChartsDataImpl(const LockHolder& lock);

// Object generations: each advance is a row of "generation", and every object
// alive then carries its id in the upper half of its tag.
class Generations {
public:
    // A new generation, and every object without one put into it.
    static void advanceGeneration(const LockHolder& lock, const ZString& description);
    // The new generation alone: for a caller that tags every object itself.
    static void openGeneration(const LockHolder& lock, const ZString& description);
    static int getCurrentGenerationID();
};
