package com.corvane.probes.triggers;

public class StartExceptionProfilingAction extends PendingAction {
}
