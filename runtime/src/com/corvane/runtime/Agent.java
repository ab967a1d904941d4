package com.corvane.runtime;

/** Capability bits of the native agent, as seen from the Java side. */
public final class Agent {
    public static final int CAPABILITY_ATTACHED_AGENT = 1024;
    public static final int CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE = 16384;
    public static final int CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE_IBM = 65536;
    public static final int CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE_BY_OPTION = 131072;
    public static final int CAPABILITY_HEAP_SAMPLING = 262144;
    public static final int CAPABILITY_ASYNC_SAMPLING = 524288;

    private Agent() {
    }

    public static boolean isAttached() {
        return (Callback.getCapabilities() & CAPABILITY_ATTACHED_AGENT) != 0;
    }
}
