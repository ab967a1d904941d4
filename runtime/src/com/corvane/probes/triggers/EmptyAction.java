package com.corvane.probes.triggers;

/** Does nothing: a trigger that only counts. */
public class EmptyAction extends Action {
    @Override
    protected void perform() {
    }
}
