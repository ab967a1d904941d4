package com.corvane.probes.triggers;

public class StartStackTelemetryAction extends PendingAction {
}
