package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** Stops stack telemetry. */
public class StopStackTelemetryAction extends Action {
    @Override
    protected void perform() {
        Callback.stopStackTelemetry();
    }
}
