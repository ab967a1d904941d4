package com.corvane.probes.triggers;

public class AlarmAction extends PendingAction {
    public String myMessage;
}
