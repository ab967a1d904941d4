package com.corvane.probes.triggers;

public class StartCallCountingAction extends PendingAction {
}
