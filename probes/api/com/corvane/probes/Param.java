package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/** The target's parameter with this 1-based index; beyond the target's parameters, zero or null. */
@Target(ElementType.PARAMETER)
public @interface Param {
    int value();
}
