package com.corvane.probes.triggers;

import com.corvane.runtime.Core;
import com.corvane.runtime.SharedConstants;

/** Starts CPU sampling with the default settings, as the control port does. */
public class StartSamplingAction extends Action {
    @Override
    protected void perform() {
        requireTaken(Core.startCpuProfilingSafe(SharedConstants.CPU_SAMPLING, null));
    }
}
