package com.corvane.probes.triggers;

/**
 * Holds the listener's next action until the event that fired it is over: a
 * CPU or memory usage back below its threshold. With `maxTimeToWait` above
 * zero it waits that long at most. The telemetry thread does not wait: it
 * tests the event each period and goes on once it is over. Where a listener
 * runs its actions at once (a timer, the JVM's start and exit, a method
 * call) the event is over when the actions run, and nothing waits.
 */
public class WaitForEventToFinishAction extends Action {
    public Duration myMaxTimeToWait;

    public long maxTimeToWaitMs() {
        return myMaxTimeToWait == null ? 0 : myMaxTimeToWait.toMillis();
    }

    @Override
    protected void perform() {
    }
}
