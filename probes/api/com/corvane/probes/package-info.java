/**
 * Probes: plain classes whose public static callbacks the agent calls from
 * the methods that their {@link com.corvane.probes.MethodPattern} selects.
 *
 * <p>A probe class has at least one of these callbacks, each at most once:
 * {@code onEnter} (before the target's code), {@code onReturn} (at each
 * normal return), {@code onUncaughtException} (when an exception leaves the
 * target), or {@code onExit} (both of the last two in one method). Every
 * parameter of a callback carries one annotation of this package that says
 * what it receives. A non-void {@code onReturn} or {@code onExit} replaces
 * the target's return value, and is then applied only to targets of the
 * same return type. The annotations are read from the class file; they need
 * not be present at run time.
 */
package com.corvane.probes;
