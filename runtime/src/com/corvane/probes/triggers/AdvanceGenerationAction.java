package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;

/** Advances the object generation, described as made by a trigger. */
public class AdvanceGenerationAction extends Action {
    @Override
    protected void perform() {
        Callback.advanceGeneration("Trigger");
    }
}
