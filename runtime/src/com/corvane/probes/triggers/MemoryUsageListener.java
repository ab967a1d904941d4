package com.corvane.probes.triggers;

/** A threshold listener on the used part of a memory of known maximum size. */
public abstract class MemoryUsageListener extends ThresholdListener {
    MemoryUsageListener(int thresholdPercent, Duration minimumTimeToActivate) {
        super(thresholdPercent, minimumTimeToActivate);
    }

    /** Whether to fire with `used` of `max` bytes; a memory of unknown maximum never fires. */
    public boolean shouldTrigger(long nowMs, long used, long max) {
        return max > 0 && shouldTriggerAt(nowMs, used * 100.0 / max);
    }

    /** Whether the used part is below the threshold again. */
    public boolean isEventFinished(long used, long max) {
        return max <= 0 || isBelow(used * 100.0 / max);
    }
}
