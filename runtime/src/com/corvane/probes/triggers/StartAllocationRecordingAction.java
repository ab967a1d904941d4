package com.corvane.probes.triggers;

public class StartAllocationRecordingAction extends PendingAction {
}
