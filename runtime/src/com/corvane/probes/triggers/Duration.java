package com.corvane.probes.triggers;

import java.util.concurrent.TimeUnit;

/** A span of time as triggers write it: a number and one of the postfixes "ms", "s", "m", "h". */
public final class Duration {
    private static final String[] POSTFIXES = {"ms", "s", "m", "h"};
    private static final TimeUnit[] UNITS = {TimeUnit.MILLISECONDS, TimeUnit.SECONDS, TimeUnit.MINUTES, TimeUnit.HOURS};

    public final long myValue;
    public final TimeUnit myUnit;

    public Duration(long value, TimeUnit unit) {
        myValue = value;
        myUnit = unit;
    }

    public static Duration parse(String text) {
        // "ms" before "s", so that "5ms" is not read as 5m and an "s".
        for (int i = 0; i < POSTFIXES.length; i++) {
            String postfix = POSTFIXES[i];
            if (text.endsWith(postfix)) {
                String number = text.substring(0, text.length() - postfix.length());
                try {
                    return new Duration(Long.parseLong(number), UNITS[i]);
                } catch (NumberFormatException e) {
                    break;
                }
            }
        }
        throw new IllegalArgumentException("wrong duration postfix: " + text);
    }

    public long toMillis() {
        return myUnit.toMillis(myValue);
    }

    @Override
    public String toString() {
        for (int i = 0; i < UNITS.length; i++) {
            if (UNITS[i] == myUnit) {
                return myValue + POSTFIXES[i];
            }
        }
        return myValue + "ms";
    }
}
