package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/** The target's descriptor, e.g. (ILjava/lang/String;)V, as a String. */
@Target(ElementType.PARAMETER)
public @interface MethodSignature {
}
