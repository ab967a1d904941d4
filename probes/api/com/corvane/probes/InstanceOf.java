package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/**
 * Restricts a probe to methods of this class and its subclasses; the
 * parameters annotated with {@link This} are then of type Object.
 */
@Target(ElementType.TYPE)
public @interface InstanceOf {
    String value();
}
