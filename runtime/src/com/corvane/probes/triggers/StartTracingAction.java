package com.corvane.probes.triggers;

import com.corvane.runtime.Core;
import com.corvane.runtime.SharedConstants;

/** Starts CPU tracing with the default settings. */
public class StartTracingAction extends Action {
    @Override
    protected void perform() {
        requireTaken(Core.startCpuProfilingSafe(SharedConstants.CPU_TRACING, null));
    }
}
