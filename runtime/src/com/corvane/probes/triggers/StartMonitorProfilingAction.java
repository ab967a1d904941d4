package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** Starts monitor profiling, or fails with the agent's refusal. */
public class StartMonitorProfilingAction extends Action {
    @Override
    protected void perform() {
        requireTaken(Callback.startMonitorProfiling());
    }
}
