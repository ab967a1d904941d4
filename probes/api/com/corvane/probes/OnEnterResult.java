package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/** What onEnter returned; of onEnter's return type. */
@Target(ElementType.PARAMETER)
public @interface OnEnterResult {
}
