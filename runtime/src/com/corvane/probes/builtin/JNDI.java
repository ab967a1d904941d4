package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.Param;
import com.corvane.probes.ThrownException;

/** Naming lookups: a row of "JNDI Lookups" for each, with the name, its time and the error of one that fails. */
@MethodPattern({"javax.naming.InitialContext:lookup(*) java.lang.Object",
        "javax.naming.InitialContext:lookupLink(*) java.lang.Object"})
public final class JNDI {
    static final Calls LOOKUPS = new Calls("JNDI Lookups", "Name");

    private JNDI() {
    }

    public static int onEnter(@Param(1) Object name) {
        return LOOKUPS.enter(name);
    }

    public static void onExit(@OnEnterResult int row, @ThrownException Throwable thrown) {
        LOOKUPS.exit(row, thrown);
    }
}
