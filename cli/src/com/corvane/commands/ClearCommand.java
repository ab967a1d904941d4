package com.corvane.commands;

import com.corvane.live.AgentException;
import com.corvane.runtime.Protocol;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;

@Command(name = "clear", mixinStandardHelpOptions = true,
        description = {"Forgets what a running JVM has recorded so far: CPU, allocation, monitor and exception data.",
            "", "Recordings that run go on from nothing.", ""},
        footer = {"", "Example:", "  corvane clear 12345"})
public final class ClearCommand implements Callable<Integer> {
    private static final int[] CLEARS = {Protocol.PACKET_CLEAR_CPU_DATA, Protocol.PACKET_CLEAR_ALLOCATION_DATA,
        Protocol.PACKET_CLEAR_MONITOR_DATA, Protocol.PACKET_CLEAR_EXCEPTIONS};
    /** The refusal of a recording that this agent does not have: nothing of it to clear. */
    private static final String NOT_AVAILABLE = "is not available in this agent";

    @Mixin
    LiveTarget myTarget = new LiveTarget();

    private final Io myIo;

    public ClearCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        myTarget.talk(client -> {
            for (int type : CLEARS) {
                try {
                    client.simple(type);
                } catch (AgentException e) {
                    if (!e.isRefusal() || !e.getMessage().endsWith(NOT_AVAILABLE)) {
                        throw e;
                    }
                }
            }
            return null;
        });
        myIo.out().println("corvane: recorded data cleared in " + myTarget.describe());
        myIo.out().flush();
        return 0;
    }
}
