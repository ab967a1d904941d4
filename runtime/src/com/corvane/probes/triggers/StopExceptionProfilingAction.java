package com.corvane.probes.triggers;

public class StopExceptionProfilingAction extends PendingAction {
}
