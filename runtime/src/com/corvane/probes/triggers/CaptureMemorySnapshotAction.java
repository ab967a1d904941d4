package com.corvane.probes.triggers;

import com.corvane.runtime.Core;
import com.corvane.runtime.SharedConstants;

/** Captures a memory snapshot, the whole heap with the profile, into the snapshot directory. */
public class CaptureMemorySnapshotAction extends Action {
    @Override
    protected void perform() {
        requireTaken(Core.captureSnapshotByTrigger(null, SharedConstants.SNAPSHOT_FLAG_MEMORY, new String[1]));
    }
}
