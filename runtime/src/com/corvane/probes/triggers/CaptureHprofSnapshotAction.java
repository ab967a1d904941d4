package com.corvane.probes.triggers;

import com.corvane.runtime.Core;
import com.corvane.runtime.SharedConstants;

/** Has the JVM's own dumper write an HPROF snapshot into the snapshot directory. */
public class CaptureHprofSnapshotAction extends Action {
    @Override
    protected void perform() {
        requireTaken(Core.captureSnapshotByTrigger(null, SharedConstants.SNAPSHOT_FLAG_HPROF, new String[1]));
    }
}
