package com.corvane.probes.triggers;

/** Its actions run once, when the agent has started in the JVM. */
public class JvmStartListener extends EventListener {
}
