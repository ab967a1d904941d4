package com.corvane.probes.triggers;

/** An action that this agent cannot perform yet: a trigger text that holds one is refused. */
abstract class PendingAction extends Action {
    @Override
    public String checkAvailable() {
        String name = getClass().getSimpleName();
        return name.substring(0, name.length() - "Action".length()) + " is not available in this agent yet";
    }

    @Override
    protected void perform() {
        throw new UnsupportedOperationException(checkAvailable());
    }
}
