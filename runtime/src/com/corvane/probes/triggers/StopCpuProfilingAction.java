package com.corvane.probes.triggers;

public class StopCpuProfilingAction extends PendingAction {
}
