package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;
import com.corvane.runtime.SharedConstants;

/** Starts allocation recording with exact stacks of each 10th object and of every object of 4096 bytes or more. */
public class StartAllocationRecordingAction extends Action {
    static final int RECORD_EACH = 10;
    static final int SIZE_LIMIT = 4096;

    @Override
    protected void perform() {
        requireTaken(Callback.startAllocationRecording(RECORD_EACH, SIZE_LIMIT, SharedConstants.ALLOCATION_RECORDING_EXACT_STACKS, null));
    }
}
