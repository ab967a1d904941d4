package com.corvane.probes.triggers;

import java.util.concurrent.TimeUnit;

/** Fires each `delay` of uptime, the first time one delay after the first telemetry period. */
public class TimerListener extends EventListener {
    public Duration myDelay = new Duration(1, TimeUnit.HOURS);
    private transient long myNextTimeMs = -1;

    public boolean shouldTrigger(long uptimeMs) {
        if (isTriggerCountExceeded()) {
            return false;
        }
        if (myNextTimeMs < 0) {
            myNextTimeMs = uptimeMs + myDelay.toMillis();
            return false;
        }
        return uptimeMs >= myNextTimeMs;
    }

    @Override
    public void onActionsCompleted(long uptimeMs) {
        super.onActionsCompleted(uptimeMs);
        myNextTimeMs = uptimeMs + myDelay.toMillis();
    }
}
