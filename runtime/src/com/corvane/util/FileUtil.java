package com.corvane.util;

/** Small helpers for file names and paths. */
public final class FileUtil {
    private static final String FORBIDDEN = "\\/<>|\":?*";

    private FileUtil() {
    }

    /** The text with every character that a file name can't hold replaced by "-". */
    public static String toFileNamePart(String text) {
        StringBuilder result = new StringBuilder(text.length());
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            result.append(c <= 31 || FORBIDDEN.indexOf(c) >= 0 ? '-' : c);
        }
        return result.toString();
    }
}
