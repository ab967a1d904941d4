package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** Stops exception profiling. */
public class StopExceptionProfilingAction extends Action {
    @Override
    protected void perform() {
        Callback.stopExceptionProfiling();
    }
}
