package com.corvane.commands;

import com.corvane.live.AgentClient;
import com.corvane.live.AgentException;
import com.corvane.live.Sessions;
import java.io.IOException;
import picocli.CommandLine.Parameters;

/** The running JVM a live command talks to: a pid or a session name, as 'corvane list' shows them. */
final class LiveTarget {
    @Parameters(index = "0", paramLabel = "<pid|session>",
            description = "Process id or session name of a JVM that runs the agent (see 'corvane list').")
    String myTarget;

    private Sessions.Session mySession;

    Sessions.Session session() {
        if (mySession == null) {
            try {
                mySession = Sessions.find(myTarget);
            } catch (Sessions.NoSuchSessionException e) {
                throw new UserException(e.getMessage());
            }
            if (mySession.port() <= 0) {
                throw new UserException("process " + mySession.pid() + " has not opened its control port (the agent"
                        + " waits, as the option delay=-1 asks)");
            }
        }
        return mySession;
    }

    AgentClient client() {
        return new AgentClient(session().port());
    }

    /** What a command says to the agent. */
    interface Conversation<T> {
        T with(AgentClient client) throws IOException;
    }

    /** Runs the conversation with the target's agent; whatever goes wrong is one line for the user. */
    <T> T talk(Conversation<T> conversation) {
        try {
            return conversation.with(client());
        } catch (AgentException e) {
            throw failure(e);
        } catch (IOException e) {
            throw new UserException(e.getMessage());
        }
    }

    /** One line for what went wrong in talking to the agent. */
    UserException failure(AgentException e) {
        String message = e.getMessage().replace('\n', ' ').trim();
        Sessions.Session session = session();
        return new UserException(e.isRefusal()
                ? "process " + session.pid() + " refused: " + message
                : message + " (process " + session.pid() + ", session " + session.name() + ")");
    }

    String describe() {
        return "process " + session().pid() + " (" + session().name() + ")";
    }
}
