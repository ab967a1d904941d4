package com.corvane.probes.triggers;

public class SleepAction extends PendingAction {
    public Duration myDuration;
}
