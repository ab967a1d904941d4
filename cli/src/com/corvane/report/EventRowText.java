package com.corvane.report;

import java.util.Locale;
import java.util.Map;

/** One row of an event table as a line: "#id  12.345 ms  column=value ...", the uptimes left out. */
public final class EventRowText {
    private EventRowText() {
    }

    public static String format(Map<String, Object> row) {
        StringBuilder text = new StringBuilder("#").append(row.get("eventId"));
        if (row.containsKey("duration_ns")) {
            text.append(String.format(Locale.ROOT, "  %.3f ms", (Long) row.get("duration_ns") / 1e6));
        }
        for (Map.Entry<String, Object> value : row.entrySet()) {
            String name = value.getKey();
            if (name.equals("eventId") || name.equals("duration_ns") || name.equals("dependent")
                    || name.startsWith("uptime_ns")) {
                continue;
            }
            text.append("  ").append(name).append('=').append(value.getValue());
        }
        return text.toString();
    }
}
