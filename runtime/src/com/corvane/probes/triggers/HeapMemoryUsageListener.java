package com.corvane.probes.triggers;

import java.util.concurrent.TimeUnit;

/** Fires when the used heap has stayed at `usageThresholdPercent` of its maximum or above. */
public class HeapMemoryUsageListener extends MemoryUsageListener {
    public HeapMemoryUsageListener() {
        super(90, new Duration(0, TimeUnit.MILLISECONDS));
    }
}
