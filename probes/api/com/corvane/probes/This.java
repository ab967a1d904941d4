package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/**
 * The receiver; null in static methods. Without {@link InstanceOf} a type
 * other than Object restricts the probe to that class and its subclasses.
 */
@Target(ElementType.PARAMETER)
public @interface This {
}
