package com.corvane.runtime;

/**
 * The surface between the Java half and the native agent. The natives are
 * registered by the agent when the JVM starts; nothing here is linked by name.
 */
public final class Callback {
    private Callback() {
    }

    // Time and properties
    public static native long getTimeNsForTracing();

    public static native long getUptimeMs();

    public static native void correctUptimeMs(long etalonMs);

    // Mode control
    public static native long getStatus();

    public static native long getCapabilities();

    public static native int getTelemetryPeriodMs();

    public static native int getAllocationRecordingSettingsRecordEach();

    public static native int getAllocationRecordingSettingsSizeLimit();

    // Processes and session
    public static native long getProcessCpuTimeNs(boolean kernelOnly);

    public static native long getProcessMemoryUsage();

    public static native long getProcessPhysicalMemoryUsage();

    // Messages
    public static native void messageToLogFile(String text);

    public static native void messageToStdout(String text);

    public static native void messageToStderr(String text);

    // Miscellaneous
    public static native int getPhase();

    public static native long dispatchLong(String key);

    public static native Object dispatchNullable(String key, String[] args);

    public static int dispatchInt(String key) {
        return (int) dispatchLong(key);
    }

    public static boolean dispatchBoolean(String key) {
        return dispatchLong(key) != 0;
    }

    public static Object dispatchNotNull(String key, String[] args) {
        Object result = dispatchNullable(key, args);
        if (result == null) {
            throw new IllegalStateException("null for " + key);
        }
        return result;
    }

    public static int getPid() {
        return dispatchInt("d_getPid");
    }

    public static String[] getCommandLine() {
        return (String[]) dispatchNotNull("d_command_line", new String[0]);
    }

    public static String getProcessOwner() {
        return (String) dispatchNotNull("d_process_owner", new String[0]);
    }

    public static String getPlatform() {
        return (String) dispatchNotNull("d_get_platform", new String[0]);
    }
}
