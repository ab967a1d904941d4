package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/**
 * All parameters of the target, as Object[] (primitives boxed). With
 * {@link Out} in onEnter, what the callback stores into the array becomes
 * the parameters.
 */
@Target(ElementType.PARAMETER)
public @interface Params {
}
