package com.corvane.probes.triggers;

public class StopStackTelemetryAction extends PendingAction {
}
