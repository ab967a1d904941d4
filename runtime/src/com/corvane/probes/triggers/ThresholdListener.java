package com.corvane.probes.triggers;

/**
 * A listener that fires once a usage has stayed at or above its threshold for
 * `minimumTimeToActivate`; the very first sample never fires.
 */
public abstract class ThresholdListener extends EventListener {
    public int myUsageThresholdPercent;
    public Duration myMinimumTimeToActivate;
    private transient boolean mySampled;
    private transient long myReachedAtMs = -1;

    ThresholdListener(int thresholdPercent, Duration minimumTimeToActivate) {
        myUsageThresholdPercent = thresholdPercent;
        myMinimumTimeToActivate = minimumTimeToActivate;
    }

    /** Whether to fire at `nowMs` with the usage `percent` of this sample. */
    boolean shouldTriggerAt(long nowMs, double percent) {
        if (isTriggerCountExceeded()) {
            return false;
        }
        if (!mySampled) {
            mySampled = true;
            return false;
        }
        if (percent < myUsageThresholdPercent) {
            myReachedAtMs = -1;
            return false;
        }
        long minimum = myMinimumTimeToActivate.toMillis();
        if (minimum == 0) {
            return true;
        }
        if (myReachedAtMs < 0) {
            myReachedAtMs = nowMs;
        }
        return nowMs - myReachedAtMs >= minimum;
    }

    /** Whether the usage `percent` is below the threshold: what fired the listener is over. */
    boolean isBelow(double percent) {
        return percent < myUsageThresholdPercent;
    }

    @Override
    public void onActionsCompleted(long uptimeMs) {
        super.onActionsCompleted(uptimeMs);
        myReachedAtMs = -1;
    }
}
