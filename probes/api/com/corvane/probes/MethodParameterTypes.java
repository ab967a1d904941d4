package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/** The target's parameter list as text, e.g. (int, java.lang.String), as a String. */
@Target(ElementType.PARAMETER)
public @interface MethodParameterTypes {
}
