package com.corvane.testing;

import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/** A strict JSON reader for checking the tool's output: objects become maps, arrays lists, numbers Long or Double. */
public final class JsonParser {
    private final String myText;
    private int myAt;

    private JsonParser(String text) {
        myText = text;
    }

    public static Object parse(String text) {
        JsonParser parser = new JsonParser(text);
        Object value = parser.value();
        parser.blanks();
        if (parser.myAt != text.length()) {
            throw parser.error("text after the value");
        }
        return value;
    }

    /** A parsed object, as what it is. */
    @SuppressWarnings("unchecked")
    public static Map<String, Object> map(Object value) {
        return (Map<String, Object>) value;
    }

    /** A parsed array, as what it is. */
    @SuppressWarnings("unchecked")
    public static List<Object> list(Object value) {
        return (List<Object>) value;
    }

    private Object value() {
        blanks();
        if (myAt >= myText.length()) {
            throw error("end of text");
        }
        char c = myText.charAt(myAt);
        if (c == '{') {
            Map<String, Object> map = new LinkedHashMap<>();
            myAt++;
            blanks();
            if (peek('}')) {
                return map;
            }
            do {
                blanks();
                String key = string();
                blanks();
                expect(':');
                map.put(key, value());
                blanks();
            } while (accept(','));
            expect('}');
            return map;
        }
        if (c == '[') {
            List<Object> list = new ArrayList<>();
            myAt++;
            blanks();
            if (peek(']')) {
                return list;
            }
            do {
                list.add(value());
                blanks();
            } while (accept(','));
            expect(']');
            return list;
        }
        if (c == '"') {
            return string();
        }
        for (String word : new String[] {"true", "false", "null"}) {
            if (myText.startsWith(word, myAt)) {
                myAt += word.length();
                return word.equals("null") ? null : Boolean.valueOf(word);
            }
        }
        int start = myAt;
        while (myAt < myText.length() && "+-0123456789.eE".indexOf(myText.charAt(myAt)) >= 0) {
            myAt++;
        }
        String number = myText.substring(start, myAt);
        if (number.isEmpty()) {
            throw error("unexpected character '" + c + "'");
        }
        return number.matches("-?\\d+") ? (Object) Long.parseLong(number) : (Object) Double.parseDouble(number);
    }

    private String string() {
        expect('"');
        StringBuilder text = new StringBuilder();
        while (true) {
            if (myAt >= myText.length()) {
                throw error("unterminated string");
            }
            char c = myText.charAt(myAt++);
            if (c == '"') {
                return text.toString();
            }
            if (c < 0x20) {
                throw error("raw control character in string");
            }
            if (c == '\\') {
                char e = myText.charAt(myAt++);
                switch (e) {
                    case 'n': text.append('\n'); break;
                    case 't': text.append('\t'); break;
                    case 'r': text.append('\r'); break;
                    case 'b': text.append('\b'); break;
                    case 'f': text.append('\f'); break;
                    case 'u':
                        text.append((char) Integer.parseInt(myText.substring(myAt, myAt + 4), 16));
                        myAt += 4;
                        break;
                    default: text.append(e);
                }
            } else {
                text.append(c);
            }
        }
    }

    private void blanks() {
        while (myAt < myText.length() && Character.isWhitespace(myText.charAt(myAt))) {
            myAt++;
        }
    }

    private boolean peek(char c) {
        if (myAt < myText.length() && myText.charAt(myAt) == c) {
            myAt++;
            return true;
        }
        return false;
    }

    private boolean accept(char c) {
        return peek(c);
    }

    private void expect(char c) {
        if (!peek(c)) {
            throw error("expected '" + c + "'");
        }
    }

    private IllegalArgumentException error(String what) {
        return new IllegalArgumentException("JSON: " + what + " at " + myAt);
    }
}
