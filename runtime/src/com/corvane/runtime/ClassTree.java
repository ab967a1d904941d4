package com.corvane.runtime;

import java.util.HashSet;
import java.util.Set;

/**
 * Subclass questions about classes the JVM has loaded, asked by the agent
 * while it chooses classes to retransform. The answers come from the loaded
 * classes' own supertypes, so nothing new is loaded.
 */
public final class ClassTree {
    private final Set<Class<?>> myClasses = new HashSet<Class<?>>();

    public void addClass(Class<?> klass) {
        myClasses.add(klass);
    }

    /** Whether the class is, extends or implements the class of the dotted name. */
    public boolean isInstanceOf(Class<?> klass, String name) {
        for (Class<?> c = klass; c != null; c = c.getSuperclass()) {
            if (c.getName().equals(name) || implementsInterface(c, name)) {
                return true;
            }
        }
        return false;
    }

    private static boolean implementsInterface(Class<?> klass, String name) {
        for (Class<?> i : klass.getInterfaces()) {
            if (i.getName().equals(name) || implementsInterface(i, name)) {
                return true;
            }
        }
        return false;
    }
}
