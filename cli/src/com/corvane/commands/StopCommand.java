package com.corvane.commands;

import com.corvane.live.Modes;
import com.corvane.runtime.Protocol;
import com.corvane.runtime.SharedConstants;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

@Command(name = "stop", sortOptions = false, mixinStandardHelpOptions = true,
        description = {"Stops recording in a running JVM; what was recorded stays for the next snapshot.", "",
            "Without options every recording that runs stops.", ""},
        footer = {"", "Examples:", "  corvane stop 12345", "  corvane stop MyApp --cpu"})
public final class StopCommand implements Callable<Integer> {
    @Mixin
    LiveTarget myTarget = new LiveTarget();

    @Option(names = "--cpu", description = "CPU sampling, tracing or call counting.")
    boolean myCpu;

    @Option(names = "--allocations", description = "Allocation recording.")
    boolean myAllocations;

    @Option(names = "--monitors", description = "Monitor profiling.")
    boolean myMonitors;

    private final Io myIo;

    public StopCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        boolean all = !myCpu && !myAllocations && !myMonitors;
        myTarget.talk(client -> {
            long status = client.status();
            int stopped = 0;
            if ((all || myCpu) && Modes.cpu(status) != null) {
                client.simple(Protocol.PACKET_STOP_CPU_PROFILING_REQ);
                report(Modes.cpu(status));
                stopped++;
            }
            if ((all || myAllocations) && Modes.allocations(status) != null) {
                client.simple(Protocol.PACKET_STOP_ALLOCATION_RECORDING_REQ);
                report(Modes.allocations(status));
                stopped++;
            }
            if ((all || myMonitors) && (status & SharedConstants.MONITORS_BIT) != 0) {
                client.simple(Protocol.PACKET_STOP_MONITOR_PROFILING);
                report("monitor profiling");
                stopped++;
            }
            if (stopped == 0) {
                myIo.note("nothing to stop: " + myTarget.describe() + " records " + Modes.summary(status)
                        .replace("idle", "nothing"));
            }
            return null;
        });
        return 0;
    }

    private void report(String what) {
        myIo.out().println("corvane: " + what + " stopped in " + myTarget.describe());
        myIo.out().flush();
    }
}
