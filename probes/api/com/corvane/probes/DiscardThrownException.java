package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/**
 * The exception callback ({@code onExit} or {@code onUncaughtException})
 * replaces an exception leaving the target by a normal return, with the
 * callback's result as the target's return value.
 */
@Target(ElementType.TYPE)
public @interface DiscardThrownException {
}
