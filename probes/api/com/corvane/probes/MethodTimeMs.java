package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/** The milliseconds spent in the target, as a long. */
@Target(ElementType.PARAMETER)
public @interface MethodTimeMs {
}
