package com.corvane.commands;

/** A failure the user caused or can fix: printed as one line, never with a stack trace. */
public final class UserException extends RuntimeException {
    private static final long serialVersionUID = 1L;
    public static final int EXIT_FAILURE = 1;

    private final int myExitCode;

    public UserException(String message) {
        this(message, EXIT_FAILURE);
    }

    public UserException(String message, int exitCode) {
        super(message);
        myExitCode = exitCode;
    }

    public int exitCode() {
        return myExitCode;
    }
}
