package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** Starts stack telemetry. */
public class StartStackTelemetryAction extends Action {
    @Override
    protected void perform() {
        Callback.startStackTelemetry();
    }
}
