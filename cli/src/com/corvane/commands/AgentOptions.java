package com.corvane.commands;

import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;

/** Builds and reads the agent's comma-separated option text. */
public final class AgentOptions {
    private static final String QUOTED_PREFIX = "KZTQUOTED";

    private AgentOptions() {
    }

    /** name=value, with the value hex-quoted when it holds a comma, so that it stays one option. */
    public static String option(String name, String value) {
        if (value.indexOf(',') < 0 && !value.startsWith(QUOTED_PREFIX)) {
            return name + "=" + value;
        }
        StringBuilder text = new StringBuilder(name).append('=').append(QUOTED_PREFIX);
        for (byte b : value.getBytes(StandardCharsets.UTF_8)) {
            text.append(Character.forDigit((b >> 4) & 0xF, 16)).append(Character.forDigit(b & 0xF, 16));
        }
        return text.toString();
    }

    /** Joins option texts with commas, leaving out empty ones and stray commas at either end. */
    public static String join(String... parts) {
        List<String> kept = new ArrayList<>();
        for (String part : parts) {
            if (part == null) {
                continue;
            }
            String trimmed = stripCommas(part);
            if (!trimmed.isEmpty()) {
                kept.add(trimmed);
            }
        }
        return String.join(",", kept);
    }

    private static String stripCommas(String text) {
        int from = 0;
        int to = text.length();
        while (from < to && text.charAt(from) == ',') {
            from++;
        }
        while (to > from && text.charAt(to - 1) == ',') {
            to--;
        }
        return text.substring(from, to);
    }

    /** The value of the last occurrence of name=..., decoded; null when the option is not there. */
    public static String lastValue(String options, String name) {
        String found = null;
        for (String option : options.split(",")) {
            if (option.startsWith(name + "=")) {
                found = decode(option.substring(name.length() + 1));
            }
        }
        return found;
    }

    /** Whether a bare flag such as "quiet" is among the options. */
    public static boolean hasFlag(String options, String flag) {
        for (String option : options.split(",")) {
            if (option.equals(flag)) {
                return true;
            }
        }
        return false;
    }

    /** The agent's decoder: KZTQUOTED and an even number of hex digits spell bytes; anything else stays. */
    public static String decode(String value) {
        if (!value.startsWith(QUOTED_PREFIX)) {
            return value;
        }
        String hex = value.substring(QUOTED_PREFIX.length());
        if (hex.length() % 2 != 0) {
            return value;
        }
        byte[] bytes = new byte[hex.length() / 2];
        for (int i = 0; i < bytes.length; i++) {
            int high = Character.digit(hex.charAt(2 * i), 16);
            int low = Character.digit(hex.charAt(2 * i + 1), 16);
            if (high < 0 || low < 0) {
                return value;
            }
            bytes[i] = (byte) (high << 4 | low);
        }
        return new String(bytes, StandardCharsets.UTF_8);
    }
}
