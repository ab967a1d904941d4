package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.runtime.Callback;

/**
 * Keeps call tracing right on a JVM that sends no exception events. A frame
 * that an exception unwinds sends no exit; the exception event tells the agent
 * so, and the thread's next method event then brings its whole stack. Without
 * those events the agent switches this probe on, and every method rewritten
 * for tracing tells it the same thing on its way out by exception.
 */
@MethodPattern("*:*(*)")
public final class CpuTracingSupport {
    private CpuTracingSupport() {
    }

    public static void onUncaughtException() {
        Callback.onUncaughtException();
    }
}
