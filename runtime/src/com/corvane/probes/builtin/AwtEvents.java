package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.Param;
import com.corvane.probes.ThrownException;

/**
 * Events dispatched by the event queue of the user interface: a row of
 * "AWT Events" for each, with the event's class and id, and the time its
 * listeners took.
 */
@MethodPattern("java.awt.EventQueue:dispatchEvent(java.awt.AWTEvent)")
public final class AwtEvents {
    static final Calls EVENTS = new Calls("AWT Events", "Event");

    private AwtEvents() {
    }

    public static int onEnter(@Param(1) Object event) {
        if (event == null) {
            return 0;
        }
        return EVENTS.enter(event.getClass().getName() + " " + ProbeSupport.callInt(event, "getID", 0));
    }

    public static void onExit(@OnEnterResult int row, @ThrownException Throwable thrown) {
        EVENTS.exit(row, thrown);
    }
}
