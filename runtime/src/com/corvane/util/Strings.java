package com.corvane.util;

/** Escaping of texts for JSON and HTML. */
public final class Strings {
    private static final String JSON_SPECIALS = "\"\\\n\r\t";
    private static final String[] JSON_ESCAPES = {"\\\"", "\\\\", "\\n", "\\r", "\\t"};
    private static final String HTML_SPECIALS = "<>&\"'";
    private static final String[] HTML_ESCAPES = {"&lt;", "&gt;", "&amp;", "&quot;", "&#39;"};

    private Strings() {
    }

    /** The text as the inside of a JSON string literal; null becomes empty. */
    public static String escapeJson(String text) {
        return escape(text, JSON_SPECIALS, JSON_ESCAPES, true);
    }

    /** The text for HTML element content and attribute values; null becomes empty. */
    public static String escapeHtml(String text) {
        return escape(text, HTML_SPECIALS, HTML_ESCAPES, false);
    }

    // Each character of `specials` becomes its escape; with `controls` the other control characters become \\uXXXX.
    private static String escape(String text, String specials, String[] escapes, boolean controls) {
        if (text == null) {
            return "";
        }
        StringBuilder result = new StringBuilder(text.length() + 8);
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            int special = specials.indexOf(c);
            if (special >= 0) {
                result.append(escapes[special]);
            } else if (controls && c < 0x20) {
                result.append(String.format("\\u%04x", (int) c));
            } else {
                result.append(c);
            }
        }
        return result.toString();
    }
}
