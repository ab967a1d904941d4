package com.corvane.probes.triggers;

import java.lang.reflect.Field;
import java.lang.reflect.Modifier;
import java.util.ArrayList;
import java.util.List;

/**
 * The text form of listeners and actions: a class name up to the first blank,
 * then blank-separated key=value properties. A key is a field's name without
 * its "my" and with a lower-case initial; the fields are String, long, int,
 * boolean and Duration ones.
 */
public final class Serialization {
    private Serialization() {
    }

    /** A new object of the class that the line names, or null for a name that none of the classes has. */
    public static Object parse(String line, Class<?>[] classes, String classNameSuffix) throws Exception {
        int blank = line.indexOf(' ');
        String name = blank < 0 ? line : line.substring(0, blank);
        Class<?> found = null;
        for (Class<?> candidate : classes) {
            if (candidate.getSimpleName().equals(name + classNameSuffix)) {
                found = candidate;
            }
        }
        if (found == null) {
            return null;
        }
        Object result = found.getDeclaredConstructor().newInstance();
        String rest = blank < 0 ? "" : line.substring(blank + 1);
        for (String property : rest.split(" ")) {
            int equals = property.indexOf('=');
            if (equals < 0) {
                continue;
            }
            Field field = fieldOf(found, property.substring(0, equals));
            if (field != null) {
                set(result, field, unquoteTriggerString(property.substring(equals + 1)));
            }
        }
        return result;
    }

    /** The line of an object: its name, then each property. */
    public static String serialize(Object object, String classNameSuffix) throws IllegalAccessException {
        String className = object.getClass().getSimpleName();
        StringBuilder line = new StringBuilder(className.substring(0, className.length() - classNameSuffix.length()));
        for (Field field : fields(object.getClass())) {
            Object value = field.get(object);
            if (value != null) {
                line.append(' ').append(keyOf(field)).append('=').append(quoteTriggerString(String.valueOf(value)));
            }
        }
        return line.toString();
    }

    public static String unquoteTriggerString(String text) {
        StringBuilder result = new StringBuilder(text.length());
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            if (c == '\\' && i + 1 < text.length()) {
                char next = text.charAt(i + 1);
                String replacement = next == 's' ? " " : next == 't' ? "\t" : next == 'n' ? "\n" : next == 'r' ? "\r"
                        : next == '\\' ? "\\" : null;
                if (replacement != null) {
                    result.append(replacement);
                    i++;
                    continue;
                }
            }
            result.append(c);
        }
        return result.toString();
    }

    public static String quoteTriggerString(String text) {
        StringBuilder result = new StringBuilder(text.length());
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            switch (c) {
                case ' ': result.append("\\s"); break;
                case '\t': result.append("\\t"); break;
                case '\n': result.append("\\n"); break;
                case '\r': result.append("\\r"); break;
                case '\\': result.append("\\\\"); break;
                default: result.append(c);
            }
        }
        return result.toString();
    }

    /** The text fields of the class and its super classes, those of the super classes first. */
    static List<Field> fields(Class<?> type) {
        List<Field> result = new ArrayList<Field>();
        if (type.getSuperclass() != null) {
            result.addAll(fields(type.getSuperclass()));
        }
        for (Field field : type.getDeclaredFields()) {
            int modifiers = field.getModifiers();
            if (!Modifier.isStatic(modifiers) && !Modifier.isTransient(modifiers) && field.getName().startsWith("my")
                    && isTextType(field.getType())) {
                field.setAccessible(true);
                result.add(field);
            }
        }
        return result;
    }

    private static boolean isTextType(Class<?> type) {
        return type == String.class || type == long.class || type == int.class || type == boolean.class
                || type == Duration.class;
    }

    private static String keyOf(Field field) {
        String name = field.getName().substring(2);
        return Character.toLowerCase(name.charAt(0)) + name.substring(1);
    }

    private static Field fieldOf(Class<?> type, String key) {
        for (Field field : fields(type)) {
            if (keyOf(field).equals(key)) {
                return field;
            }
        }
        return null;
    }

    private static void set(Object object, Field field, String value) throws IllegalAccessException {
        Class<?> type = field.getType();
        if (type == String.class) {
            field.set(object, value);
        } else if (type == long.class) {
            field.setLong(object, Long.parseLong(value));
        } else if (type == int.class) {
            field.setInt(object, Integer.parseInt(value));
        } else if (type == boolean.class) {
            field.setBoolean(object, Boolean.parseBoolean(value));
        } else {
            field.set(object, Duration.parse(value));
        }
    }
}
