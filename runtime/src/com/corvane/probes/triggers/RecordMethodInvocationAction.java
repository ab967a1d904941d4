package com.corvane.probes.triggers;

public class RecordMethodInvocationAction extends PendingAction {
}
