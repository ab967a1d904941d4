package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;
import com.corvane.runtime.SharedConstants;

/** Starts counting objects per allocation site, without stacks. */
public class StartAllocatedObjectCountingAction extends Action {
    @Override
    protected void perform() {
        requireTaken(Callback.startAllocationRecording(StartAllocationRecordingAction.RECORD_EACH,
                StartAllocationRecordingAction.SIZE_LIMIT, SharedConstants.ALLOCATION_RECORDING_OBJECT_COUNTING, null));
    }
}
