package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/**
 * The exception leaving the target (onUncaughtException, onExit), of type
 * Throwable; null on a normal return.
 */
@Target(ElementType.PARAMETER)
public @interface ThrownException {
}
