package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/** The target's class, as a Class. */
@Target(ElementType.PARAMETER)
public @interface ClassRef {
}
