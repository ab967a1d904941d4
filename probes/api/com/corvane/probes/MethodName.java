package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/** The target's name, as a String. */
@Target(ElementType.PARAMETER)
public @interface MethodName {
}
