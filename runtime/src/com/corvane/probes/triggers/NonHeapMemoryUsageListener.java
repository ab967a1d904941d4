package com.corvane.probes.triggers;

import java.util.concurrent.TimeUnit;

/** Fires when the used non-heap memory has stayed at `usageThresholdPercent` of its maximum or above. */
public class NonHeapMemoryUsageListener extends MemoryUsageListener {
    public NonHeapMemoryUsageListener() {
        super(90, new Duration(0, TimeUnit.MILLISECONDS));
    }
}
