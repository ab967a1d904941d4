package com.corvane.commands;

import com.corvane.live.AgentClient;
import com.corvane.live.Modes;
import com.corvane.runtime.SharedConstants;
import java.io.PrintStream;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;

@Command(name = "status", mixinStandardHelpOptions = true,
        description = {"Tells what the agent in a running JVM is and what it records.", ""},
        footer = {"", "Examples:", "  corvane status 12345", "  corvane status MyApp"})
public final class StatusCommand implements Callable<Integer> {
    @Mixin
    LiveTarget myTarget = new LiveTarget();

    private final Io myIo;

    public StatusCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        AgentClient client = myTarget.client();
        AgentClient.AgentInfo info = myTarget.talk(AgentClient::info);
        long status = myTarget.talk(AgentClient::status);
        PrintStream out = myIo.out();
        boolean attached = (info.capabilities() & SharedConstants.CAPABILITY_ATTACHED_AGENT) != 0;
        line(out, "Process", info.pid() + " (session " + info.sessionName() + ")");
        line(out, "Port", String.valueOf(client.port()));
        line(out, "Agent", info.product() + ", " + (attached ? "attached" : "loaded on start"));
        line(out, "Snapshots", info.snapshotDirectory());
        line(out, "CPU", orOff(Modes.cpu(status)));
        line(out, "Allocations", orOff(Modes.allocations(status)));
        line(out, "Monitors", onOff(status, SharedConstants.MONITORS_BIT));
        line(out, "Exceptions", onOff(status, SharedConstants.EXCEPTION_PROFILING));
        line(out, "Stack telemetry", onOff(status, SharedConstants.STACK_TELEMETRY));
        line(out, "Deadlocks", (status & SharedConstants.DEADLOCK_DETECTED) != 0 ? "detected" : "none found");
        out.flush();
        return 0;
    }

    private static void line(PrintStream out, String name, String value) {
        out.printf("%-16s %s%n", name, value);
    }

    private static String orOff(String mode) {
        return mode == null ? "off" : mode;
    }

    private static String onOff(long status, long bit) {
        return (status & bit) != 0 ? "on" : "off";
    }
}
