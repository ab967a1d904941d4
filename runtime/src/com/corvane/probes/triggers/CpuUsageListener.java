package com.corvane.probes.triggers;

import java.util.concurrent.TimeUnit;

/** Fires when the process's CPU time per elapsed time, over all processors, has stayed at the threshold or above. */
public class CpuUsageListener extends ThresholdListener {
    private transient long myLastCpuNs = -1;
    private transient long myLastNowMs;

    public CpuUsageListener() {
        super(80, new Duration(5, TimeUnit.SECONDS));
    }

    public boolean shouldTrigger(long nowMs, long cpuNs, int processors) {
        return shouldTriggerAt(nowMs, sample(nowMs, cpuNs, processors));
    }

    /** Whether the usage since the last sample is below the threshold again. */
    public boolean isEventFinished(long nowMs, long cpuNs, int processors) {
        return isBelow(sample(nowMs, cpuNs, processors));
    }

    /** The usage in percent since the last sample; 0 for the first. */
    private double sample(long nowMs, long cpuNs, int processors) {
        double percent = 0;
        if (myLastCpuNs >= 0 && nowMs > myLastNowMs) {
            percent = (cpuNs - myLastCpuNs) / 1e4 / (nowMs - myLastNowMs) / Math.max(1, processors);
        }
        myLastCpuNs = cpuNs;
        myLastNowMs = nowMs;
        return percent;
    }
}
