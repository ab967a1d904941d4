package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/**
 * The target's return value (onReturn, onExit); boxed into an Object
 * parameter, zero or null when nothing was returned.
 */
@Target(ElementType.PARAMETER)
public @interface ReturnValue {
}
