package com.corvane;

import com.corvane.commands.AgentLibrary;

/**
 * The natives that the agent library offers to the profiler's own tools:
 * facts about other processes, the session markers of the machine, and
 * checks of user input by the agent's own code. {@link #load()} loads the
 * library once; the natives are bound by their names.
 */
public final class Natives {
    private static boolean ourLoaded;

    private Natives() {
    }

    /** Loads libcorvane.so (see {@link AgentLibrary}); a second call does nothing. */
    public static synchronized void load() {
        if (!ourLoaded) {
            System.load(AgentLibrary.locate().toString());
            ourLoaded = true;
        }
    }

    public static native String[] getCommandLineByPid(int pid);

    public static native String getSessionNameByCommandLine(int pid);

    /** Null when the process has neither an executable path nor a command line. */
    public static native String getProcessPathByPid(int pid);

    public static native int[] getSpecialJavaPids();

    public static native boolean is64BitMachine();

    /** The error text, or empty when the options are valid. */
    public static native String validateStartupOptions(String options);

    public static native int getProcessType(int pid);

    public static native String getProcessOwner(int pid);

    public static native void messageToLogFile(String text);

    public static native boolean isAdministrator();

    public static native boolean runAsAdministratorImpl(String command, String parameters);

    public static native String getLogFilePath();

    public static native long getOtherProcessCpuTimeNs(int pid);

    public static native long getTimeNsForTracing();

    public static native String getPlatform();

    /**
     * The pids and ports of the session markers that share a bit with {@code mask}, as many as the arrays hold;
     * the result is how many there are.
     */
    public static native int fillMarked(int mask, int[] pids, int[] ports);

    /** The session name a process's marker holds, or empty. */
    public static native String getSessionNameFromMarker(int pid);

    public static native int getProcessID();

    public static native int getPid();

    public static native boolean isLivePid(int pid);

    /** The first port of the range that no agent's marker holds, or -1. */
    public static native int getFreePort(int lower, int upper);

    public static native String getDefaultTaDir();

    public static native boolean matches(String text, String pattern);

    public static native long getSystemPhysicalMemorySize();

    public static native long[] readLongArrayFromFile(String path, int count);

    public static native void retransformClass(Class<?> type);

    public static native void createMutex();

    public static native String getWinRegStringValue(int root, String key, String name);

    public static native int getWinRegIntValue(int root, String key, String name);

    public static native boolean createWinRegKey(int root, String key);

    public static native boolean deleteWinRegValue(int root, String key, String name);

    public static native boolean setWinRegStringValue(int root, String key, String name, String value);

    public static native boolean setWinRegIntValue(int root, String key, String name, int value);
}
