package com.corvane.probes.triggers;

public class StartTracingAction extends PendingAction {
}
