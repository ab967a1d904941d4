package com.corvane.probes;

import java.lang.annotation.ElementType;
import java.lang.annotation.Target;

/**
 * Makes a class a probe: the methods its callbacks are called from. Each
 * pattern reads {@code class:method(parameters) return}, every part a
 * wildcard pattern with {@code *}; the return type may be left out. A
 * pattern that starts with {@code -} excludes the methods it matches. The
 * class and method parts may name an annotation first:
 * {@code @javax.ejb.* com.acme.*:@javax.annotation.PostConstruct *()}.
 */
@Target(ElementType.TYPE)
public @interface MethodPattern {
    String[] value();
}
