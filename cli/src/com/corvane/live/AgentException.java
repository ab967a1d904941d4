package com.corvane.live;

import java.io.IOException;

/** A live agent that could not be reached, answered wrongly, or refused a request. */
public final class AgentException extends IOException {
    private static final long serialVersionUID = 1L;

    private final boolean myRefusal;

    private AgentException(String message, boolean refusal, Throwable cause) {
        super(message, cause);
        myRefusal = refusal;
    }

    /** The agent said no; the message is its own. */
    static AgentException refused(String message) {
        return new AgentException(message, true, null);
    }

    static AgentException failed(String message, Throwable cause) {
        return new AgentException(message, false, cause);
    }

    /** True when the agent answered with an error rather than the connection failing. */
    public boolean isRefusal() {
        return myRefusal;
    }
}
