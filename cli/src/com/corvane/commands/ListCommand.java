package com.corvane.commands;

import com.corvane.live.AgentClient;
import com.corvane.live.AgentException;
import com.corvane.live.Modes;
import com.corvane.live.Sessions;
import java.util.List;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;

@Command(name = "list", mixinStandardHelpOptions = true,
        description = {"Lists the JVMs of this machine that run the profiler agent.", "",
            "For each: process id, session name, control port, and what it records now.", ""},
        footer = {"", "Example:", "  corvane list"})
public final class ListCommand implements Callable<Integer> {
    private final Io myIo;

    public ListCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        List<Sessions.Session> sessions = Sessions.list();
        if (sessions.isEmpty()) {
            myIo.note("no JVM on this machine runs the profiler agent");
            return 0;
        }
        int nameWidth = "SESSION".length();
        for (Sessions.Session session : sessions) {
            nameWidth = Math.max(nameWidth, session.name().length());
        }
        String format = "%-8s %-" + nameWidth + "s %-6s %s%n";
        myIo.out().printf(format, "PID", "SESSION", "PORT", "MODES");
        for (Sessions.Session session : sessions) {
            String modes;
            if (session.port() <= 0) {
                modes = "(no port yet)";
            } else {
                try {
                    modes = Modes.summary(new AgentClient(session.port()).status());
                } catch (AgentException e) {
                    modes = "(port closed)";
                } catch (java.io.IOException e) {
                    modes = "(no answer)";
                }
            }
            myIo.out().printf(format, session.pid(), session.name(), session.port() > 0 ? session.port() : "-", modes);
        }
        myIo.out().flush();
        return 0;
    }
}
