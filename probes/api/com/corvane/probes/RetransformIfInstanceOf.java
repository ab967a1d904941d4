package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/** Classes whose subclasses are to be retransformed for this probe when they appear. */
@Target(ElementType.TYPE)
public @interface RetransformIfInstanceOf {
    String[] value();
}
