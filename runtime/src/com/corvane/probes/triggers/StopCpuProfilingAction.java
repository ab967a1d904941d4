package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** Stops whichever CPU profiling runs. */
public class StopCpuProfilingAction extends Action {
    @Override
    protected void perform() {
        Callback.stopCpuProfiling(true);
    }
}
