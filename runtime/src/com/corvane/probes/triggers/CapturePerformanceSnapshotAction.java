package com.corvane.probes.triggers;

import com.corvane.runtime.Core;

/** Captures a performance snapshot into the snapshot directory, named by `fileName` when it is given. */
public class CapturePerformanceSnapshotAction extends Action {
    public String myFileName;

    @Override
    protected void perform() {
        String[] path = new String[1];
        String error = Core.captureSnapshotByTrigger(myFileName, path);
        if (error != null) {
            throw new IllegalStateException(error);
        }
    }
}
