package com.corvane.probes.triggers;

public class StartAsyncSamplingCpuAction extends PendingAction {
}
