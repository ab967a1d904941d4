package com.corvane.probes.triggers;

public class WaitForEventToFinishAction extends PendingAction {
    public Duration myMaxTimeToWait;
}
