package com.corvane.probes;

import com.corvane.runtime.Callback;

/** The probes of the agent from the program's side: whether one is on, and switching them. */
public final class Probes {
    public static final int OFF = 0;
    public static final int ON = 1;
    /** On while CPU sampling or tracing runs. */
    public static final int AUTO = 2;

    private Probes() {
    }

    /** Whether the probe (a class name, ".Name" for a built-in one) records now. */
    public static boolean isOn(String probe) {
        return Callback.isProbeOn(probe);
    }

    /** Sets the mode of a registered probe; null, or why not. */
    public static String setMode(String probe, int mode) {
        return Callback.setProbeActivityModes(new String[] {probe}, new int[] {mode});
    }
}
