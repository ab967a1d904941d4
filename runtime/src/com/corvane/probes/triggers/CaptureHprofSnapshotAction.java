package com.corvane.probes.triggers;

public class CaptureHprofSnapshotAction extends PendingAction {
}
