package com.corvane.probes.triggers;

public class AdvanceGenerationAction extends PendingAction {
}
