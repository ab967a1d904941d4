package com.corvane.probes.triggers;

public class StopAllocationRecordingAction extends PendingAction {
}
