package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** Stops monitor profiling. */
public class StopMonitorProfilingAction extends Action {
    @Override
    protected void perform() {
        Callback.stopMonitorProfiling();
    }
}
