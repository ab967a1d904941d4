package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/**
 * Beside {@link Params} in onEnter: the array's elements are written back
 * to the target's parameters.
 */
@Target(ElementType.PARAMETER)
public @interface Out {
}
