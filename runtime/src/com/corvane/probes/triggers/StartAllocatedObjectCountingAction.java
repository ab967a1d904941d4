package com.corvane.probes.triggers;

public class StartAllocatedObjectCountingAction extends PendingAction {
}
