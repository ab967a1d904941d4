package com.corvane.probes.triggers;

public class CaptureMemorySnapshotAction extends PendingAction {
}
