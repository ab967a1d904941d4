package com.corvane.probes.triggers;

/** A listener of the process's memory for other runtimes: parsed and kept, never active in a JVM. */
public class ProcessMemoryUsageListener extends EventListener {
    public long myUsageThresholdMB;
    public Duration myMinimumTimeToActivate;
}
