package com.corvane.commands;

import java.io.PrintStream;

/**
 * The streams a command writes to. The real tool passes System.out and
 * System.err; tests pass their own to read what a command said.
 */
public record Io(PrintStream out, PrintStream err, boolean progressOnTerminal) {
    /** Set by the launcher when stderr is a terminal. */
    public static final String PROGRESS_PROPERTY = "corvane.progress";

    public static Io system() {
        return new Io(System.out, System.err, "1".equals(System.getProperty(PROGRESS_PROPERTY)));
    }

    /** A warning or notice of the tool itself, one line on stderr. */
    public void note(String text) {
        err.println("corvane: " + text);
        err.flush();
    }
}
