package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** Starts exception profiling. */
public class StartExceptionProfilingAction extends Action {
    @Override
    protected void perform() {
        Callback.startExceptionProfiling();
    }
}
