package com.corvane.probes.triggers;

/**
 * Waits `duration` before the next action. The telemetry thread does not
 * wait: it notes the time and goes on with the listener's next action once
 * it has come. Elsewhere (JVM start and exit) the thread sleeps.
 */
public class SleepAction extends Action {
    public Duration myDuration;

    public long durationMs() {
        return myDuration == null ? 0 : myDuration.toMillis();
    }

    @Override
    protected void perform() throws InterruptedException {
        Thread.sleep(durationMs());
    }
}
