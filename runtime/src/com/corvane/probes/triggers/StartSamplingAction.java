package com.corvane.probes.triggers;

public class StartSamplingAction extends PendingAction {
}
