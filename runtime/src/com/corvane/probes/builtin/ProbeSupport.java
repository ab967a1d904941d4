package com.corvane.probes.builtin;

import java.lang.reflect.Method;
import java.util.concurrent.ConcurrentHashMap;

/**
 * What the built-in probes share. Their callbacks run inside the program's own
 * calls, so nothing here throws: a value that cannot be read is null.
 */
final class ProbeSupport {
    /** Longer texts (SQL, command lines, URIs) are cut to this many characters. */
    static final int TEXT_LIMIT = 4000;

    private static final Object NO_METHOD = new Object();
    private static final ConcurrentHashMap<Class<?>, ConcurrentHashMap<String, Object>> ourMethods =
            new ConcurrentHashMap<Class<?>, ConcurrentHashMap<String, Object>>();

    private ProbeSupport() {
    }

    /** The text of a value, cut to the limit; null for null or a toString that fails. */
    static String text(Object value) {
        if (value == null) {
            return null;
        }
        try {
            String text = value.toString();
            return text != null && text.length() > TEXT_LIMIT ? text.substring(0, TEXT_LIMIT) : text;
        } catch (Throwable e) {
            return null;
        }
    }

    /**
     * Calls the public method of the object's class (or of an interface it
     * implements) with that name and no parameters; null when there is none
     * or the call fails. Used on objects of libraries that the probes cannot
     * link against, since they live in loaders of the program's own.
     */
    static Object call(Object target, String name) {
        if (target == null) {
            return null;
        }
        Method method = find(target.getClass(), name);
        if (method == null) {
            return null;
        }
        try {
            return method.invoke(target);
        } catch (Throwable e) {
            return null;
        }
    }

    /**
     * The value of the object's field of that name, declared in its class or
     * above; null when there is none or it cannot be read. For libraries that
     * keep a value without a getter.
     */
    static Object field(Object target, String name) {
        for (Class<?> c = target == null ? null : target.getClass(); c != null; c = c.getSuperclass()) {
            try {
                java.lang.reflect.Field field = c.getDeclaredField(name);
                field.setAccessible(true);
                return field.get(target);
            } catch (NoSuchFieldException e) {
                // look further up
            } catch (Throwable e) {
                return null;
            }
        }
        return null;
    }

    /** {@link #call}'s int result, or {@code otherwise}. */
    static int callInt(Object target, String name, int otherwise) {
        Object value = call(target, name);
        return value instanceof Number ? ((Number) value).intValue() : otherwise;
    }

    /**
     * Whether the object's class is or extends the class or interface of that
     * name, which the probes cannot name in code; the answer is kept by class.
     */
    static boolean isA(Object value, String typeName) {
        if (value == null) {
            return false;
        }
        ConcurrentHashMap<String, Object> answers = methodsOf(value.getClass());
        String key = "isA " + typeName;
        Object answer = answers.get(key);
        if (answer == null) {
            answer = Boolean.valueOf(extendsType(value.getClass(), typeName));
            answers.put(key, answer);
        }
        return (Boolean) answer;
    }

    private static boolean extendsType(Class<?> type, String typeName) {
        if (type == null) {
            return false;
        }
        if (type.getName().equals(typeName) || extendsType(type.getSuperclass(), typeName)) {
            return true;
        }
        for (Class<?> i : type.getInterfaces()) {
            if (extendsType(i, typeName)) {
                return true;
            }
        }
        return false;
    }

    // What is known of a class: its methods by name, and answers of isA.
    private static ConcurrentHashMap<String, Object> methodsOf(Class<?> type) {
        ConcurrentHashMap<String, Object> methods = ourMethods.get(type);
        if (methods == null) {
            methods = new ConcurrentHashMap<String, Object>();
            ConcurrentHashMap<String, Object> before = ourMethods.putIfAbsent(type, methods);
            if (before != null) {
                methods = before;
            }
        }
        return methods;
    }

    private static Method find(Class<?> type, String name) {
        ConcurrentHashMap<String, Object> methods = methodsOf(type);
        Object found = methods.get(name);
        if (found == null) {
            found = lookUp(type, name);
            methods.put(name, found);
        }
        return found == NO_METHOD ? null : (Method) found;
    }

    // A public method through a public type, so that invoking it needs no access rights.
    private static Object lookUp(Class<?> type, String name) {
        for (Class<?> c = type; c != null; c = c.getSuperclass()) {
            Object found = publicMethod(c, name);
            if (found != NO_METHOD) {
                return found;
            }
            for (Class<?> i : c.getInterfaces()) {
                found = publicMethod(i, name);
                if (found != NO_METHOD) {
                    return found;
                }
            }
        }
        return NO_METHOD;
    }

    private static Object publicMethod(Class<?> c, String name) {
        if (!java.lang.reflect.Modifier.isPublic(c.getModifiers())) {
            return NO_METHOD;
        }
        try {
            return c.getMethod(name);
        } catch (Throwable e) {
            return NO_METHOD;
        }
    }
}
