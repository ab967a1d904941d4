package com.corvane.probes.triggers;

public class StartMonitorProfilingAction extends PendingAction {
}
