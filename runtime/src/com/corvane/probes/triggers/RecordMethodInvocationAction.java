package com.corvane.probes.triggers;

/**
 * Records each call of a method listener's methods as a row of the
 * "Method Invocations" event table, from entry to exit: the method, the
 * thread and place, the parameters and the return value where the listener
 * fills them, the exception of a call that threw. Wherever it stands among a
 * method listener's actions it covers the whole call; elsewhere it does
 * nothing.
 */
public class RecordMethodInvocationAction extends Action {
    @Override
    protected void perform() {
    }
}
