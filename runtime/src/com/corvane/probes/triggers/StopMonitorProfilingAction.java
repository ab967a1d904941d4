package com.corvane.probes.triggers;

public class StopMonitorProfilingAction extends PendingAction {
}
