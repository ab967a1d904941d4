package com.corvane.probes.triggers;

import com.corvane.runtime.Core;

/** Captures a performance snapshot into the snapshot directory, named by `fileName` when it is given. */
public class CapturePerformanceSnapshotAction extends Action {
    public String myFileName;

    @Override
    protected void perform() {
        requireTaken(Core.captureSnapshotByTrigger(myFileName, 0, new String[1]));
    }
}
