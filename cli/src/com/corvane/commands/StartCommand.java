package com.corvane.commands;

import com.corvane.runtime.Protocol;
import com.corvane.runtime.SharedConstants;
import java.io.DataInputStream;
import java.util.concurrent.Callable;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

@Command(name = "start", sortOptions = false, mixinStandardHelpOptions = true,
        description = {"Starts recording in a running JVM that runs the agent.", "",
            "One CPU mode at a time: a second one is refused while the first runs ('corvane stop' it first).", ""},
        footer = {"", "Examples:", "  corvane start 12345 --sampling", "  corvane start MyApp --tracing --monitors",
            "  corvane start MyApp --allocations"})
public final class StartCommand implements Callable<Integer> {
    @Mixin
    LiveTarget myTarget = new LiveTarget();

    static final class CpuMode {
        @Option(names = "--sampling", description = "CPU sampling: where threads are, every few milliseconds.")
        boolean mySampling;

        @Option(names = "--tracing", description = "CPU tracing: every call, with exact counts and times.")
        boolean myTracing;

        @Option(names = "--call-counting", description = "Call counting: how often each method runs.")
        boolean myCallCounting;
    }

    @ArgGroup(exclusive = true)
    CpuMode myCpu;

    @Option(names = "--allocations", description = "Allocation recording with exact stacks, with the settings the"
            + " agent was started with.")
    boolean myAllocations;

    @Option(names = "--monitors", description = "Monitor profiling: where threads block and wait.")
    boolean myMonitors;

    private final Io myIo;

    public StartCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        if (myCpu == null && !myAllocations && !myMonitors) {
            throw new UserException("say what to start: --sampling, --tracing, --call-counting, --allocations or"
                    + " --monitors (see 'corvane start --help')", 2);
        }
        myTarget.talk(client -> {
            if (myCpu != null) {
                long mode = myCpu.myTracing ? SharedConstants.CPU_TRACING
                        : myCpu.myCallCounting ? SharedConstants.CPU_CALL_COUNTING : SharedConstants.CPU_SAMPLING;
                client.startCpuProfiling(mode, null);
                report(myCpu.myTracing ? "tracing" : myCpu.myCallCounting ? "call counting" : "sampling");
            }
            if (myAllocations) {
                int[] settings = client.request(Protocol.PACKET_ALLOCATION_RECORDING_SETTINGS_GET_REQ, out -> {
                }, (DataInputStream in) -> new int[] {in.readInt(), in.readInt()});
                client.startAllocationRecording(settings[0], settings[1],
                        SharedConstants.ALLOCATION_RECORDING_EXACT_STACKS);
                report("allocation recording");
            }
            if (myMonitors) {
                client.simple(Protocol.PACKET_START_MONITOR_PROFILING);
                report("monitor profiling");
            }
            return null;
        });
        return 0;
    }

    private void report(String what) {
        myIo.out().println("corvane: " + what + " started in " + myTarget.describe());
        myIo.out().flush();
    }
}
