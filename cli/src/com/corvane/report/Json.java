package com.corvane.report;

import java.io.IOException;
import java.io.UncheckedIOException;
import java.util.Iterator;
import java.util.List;
import java.util.Map;

/**
 * Writes maps, lists, strings, numbers, booleans and null as JSON. With
 * {@code forHtml}, the characters that could end a script element are
 * written as escapes, so the text can be embedded in a page.
 */
public final class Json {
    private final Appendable myOut;
    private final boolean myPretty;
    private final boolean myForHtml;

    private Json(Appendable out, boolean pretty, boolean forHtml) {
        myOut = out;
        myPretty = pretty;
        myForHtml = forHtml;
    }

    public static void write(Object value, Appendable out, boolean pretty, boolean forHtml) {
        try {
            new Json(out, pretty, forHtml).value(value, 0);
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    public static String toString(Object value, boolean pretty) {
        StringBuilder text = new StringBuilder();
        write(value, text, pretty, false);
        return text.toString();
    }

    private void value(Object value, int depth) throws IOException {
        if (value == null) {
            myOut.append("null");
        } else if (value instanceof String) {
            string((String) value);
        } else if (value instanceof Double || value instanceof Float) {
            double d = ((Number) value).doubleValue();
            if (Double.isNaN(d) || Double.isInfinite(d)) {
                myOut.append("null");
            } else if (d == Math.rint(d) && Math.abs(d) < 1e15) {
                myOut.append(Long.toString((long) d));
            } else {
                myOut.append(Double.toString(d));
            }
        } else if (value instanceof Number || value instanceof Boolean) {
            myOut.append(value.toString());
        } else if (value instanceof Map) {
            object((Map<?, ?>) value, depth);
        } else if (value instanceof List) {
            array((List<?>) value, depth);
        } else if (value instanceof long[]) {
            long[] numbers = (long[]) value;
            myOut.append('[');
            for (int i = 0; i < numbers.length; i++) {
                myOut.append(i == 0 ? "" : ",").append(Long.toString(numbers[i]));
            }
            myOut.append(']');
        } else {
            string(value.toString());
        }
    }

    private void object(Map<?, ?> map, int depth) throws IOException {
        if (map.isEmpty()) {
            myOut.append("{}");
            return;
        }
        myOut.append('{');
        Iterator<? extends Map.Entry<?, ?>> entries = map.entrySet().iterator();
        while (entries.hasNext()) {
            Map.Entry<?, ?> entry = entries.next();
            newline(depth + 1);
            string(String.valueOf(entry.getKey()));
            myOut.append(myPretty ? ": " : ":");
            value(entry.getValue(), depth + 1);
            if (entries.hasNext()) {
                myOut.append(',');
            }
        }
        newline(depth);
        myOut.append('}');
    }

    private void array(List<?> list, int depth) throws IOException {
        if (list.isEmpty()) {
            myOut.append("[]");
            return;
        }
        myOut.append('[');
        for (int i = 0; i < list.size(); i++) {
            newline(depth + 1);
            value(list.get(i), depth + 1);
            if (i + 1 < list.size()) {
                myOut.append(',');
            }
        }
        newline(depth);
        myOut.append(']');
    }

    private void newline(int depth) throws IOException {
        if (myPretty) {
            myOut.append('\n');
            for (int i = 0; i < depth; i++) {
                myOut.append("  ");
            }
        }
    }

    private void string(String text) throws IOException {
        myOut.append('"');
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            switch (c) {
                case '"':
                    myOut.append("\\\"");
                    break;
                case '\\':
                    myOut.append("\\\\");
                    break;
                case '\n':
                    myOut.append("\\n");
                    break;
                case '\r':
                    myOut.append("\\r");
                    break;
                case '\t':
                    myOut.append("\\t");
                    break;
                default:
                    boolean unsafeInHtml = myForHtml && (c == '<' || c == '>' || c == '&' || c == '\u2028'
                            || c == '\u2029');
                    if (c < 0x20 || unsafeInHtml) {
                        myOut.append(String.format("\\u%04x", (int) c));
                    } else {
                        myOut.append(c);
                    }
            }
        }
        myOut.append('"');
    }
}
