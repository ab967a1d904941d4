package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** Stops allocation recording. */
public class StopAllocationRecordingAction extends Action {
    @Override
    protected void perform() {
        Callback.stopAllocationRecording();
    }
}
