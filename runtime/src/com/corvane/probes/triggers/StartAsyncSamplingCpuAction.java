package com.corvane.probes.triggers;

import com.corvane.runtime.Core;
import com.corvane.runtime.SharedConstants;

/** Starts CPU sampling of the asynchronous kind that samples running threads. */
public class StartAsyncSamplingCpuAction extends Action {
    @Override
    protected void perform() {
        long mode = SharedConstants.CPU_SAMPLING | SharedConstants.SAMPLING_MODE_ASYNC_CPU;
        requireTaken(Core.startCpuProfilingSafe(mode, null));
    }
}
