package com.corvane.probes.triggers;

/** Its actions run once, when the JVM exits. */
public class JvmExitListener extends EventListener {
}
