package com.corvane.probes.triggers;

import com.corvane.runtime.Core;
import com.corvane.runtime.SharedConstants;

/** Starts call counting. */
public class StartCallCountingAction extends Action {
    @Override
    protected void perform() {
        requireTaken(Core.startCpuProfilingSafe(SharedConstants.CPU_CALL_COUNTING, null));
    }
}
