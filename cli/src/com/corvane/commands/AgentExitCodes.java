package com.corvane.commands;

import java.util.Map;

/** The codes with which the agent refuses to start, and what each means for the user. */
public final class AgentExitCodes {
    private static final Map<Integer, String> CAUSES = Map.ofEntries(
            Map.entry(1, "the JVM gave no JVMTI environment"),
            Map.entry(2, "the JVMTI version is too old (Java 7 or newer is required)"),
            Map.entry(3, "an invalid agent option, or the option 'help'"),
            Map.entry(4, "the JVM is older than Java 7"),
            Map.entry(6, "the JVM refused the capabilities the agent needs"),
            Map.entry(8, "the runtime class archive could not be written (set the agent option tmpdir=<folder>)"),
            Map.entry(9, "no JNI environment on attach"),
            Map.entry(10, "the agent's Java half did not start on attach"),
            Map.entry(16, "the Java version is newer than the agent supports"
                    + " (the agent option _no_java_version_check overrides)"),
            Map.entry(20, "the agent's Java half did not start"),
            Map.entry(21, "a further JVMTI environment could not be made"),
            Map.entry(22, "a further JVMTI environment did not get its capabilities"),
            Map.entry(23, "the JVM is too old to load the agent"));

    private AgentExitCodes() {
    }

    /** The cause for a refusal code, or null when the agent does not use that code. */
    public static String cause(int code) {
        return CAUSES.get(code);
    }
}
