package com.corvane.probes.triggers;

public class ForceGcAction extends Action {
    @Override
    protected void perform() {
        System.gc();
    }
}
