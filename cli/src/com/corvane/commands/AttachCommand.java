package com.corvane.commands;

import com.sun.tools.attach.AgentInitializationException;
import com.sun.tools.attach.AgentLoadException;
import com.sun.tools.attach.AttachNotSupportedException;
import com.sun.tools.attach.VirtualMachine;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

@Command(name = "attach", sortOptions = false, mixinStandardHelpOptions = true,
        description = {"Loads the profiler agent into a running JVM.", "",
            "The JVM keeps running whether the agent starts or refuses.", ""},
        footer = {"", "Examples:", "  corvane attach 12345", "  corvane attach 12345 --agent-options sampling,dir=/tmp",
            "", "The JVM must run as the same user as corvane."})
public final class AttachCommand implements Callable<Integer> {
    @Parameters(index = "0", paramLabel = "<pid>", description = "Process id of the running JVM.")
    String myPid;

    @Option(names = "--agent-options", paramLabel = "<text>",
            description = "Agent options, comma-separated, e.g. 'sampling,onexit=snapshot'.")
    String myAgentOptions;

    private final Io myIo;

    public AttachCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        long pid;
        try {
            pid = Long.parseLong(myPid);
        } catch (NumberFormatException e) {
            throw new UserException("not a process id: " + myPid);
        }
        if (pid <= 0 || !Files.exists(Paths.get("/proc", Long.toString(pid)))) {
            throw new UserException("no such process: " + myPid);
        }
        if (pid == ProcessHandle.current().pid()) {
            throw new UserException("process " + pid + " is corvane itself");
        }
        Path library = AgentLibrary.locate();
        String options = myAgentOptions == null ? "" : AgentOptions.join(myAgentOptions);

        VirtualMachine vm;
        try {
            vm = VirtualMachine.attach(Long.toString(pid));
        } catch (AttachNotSupportedException e) {
            throw new UserException("cannot attach to process " + pid + ": " + describe(e)
                    + " (is it a JVM of the same user?)");
        } catch (IOException e) {
            throw new UserException("cannot attach to process " + pid + ": " + describe(e));
        }
        try {
            vm.loadAgentPath(library.toString(), options.isEmpty() ? null : options);
        } catch (AgentInitializationException e) {
            int code = e.returnValue();
            String cause = AgentExitCodes.cause(code);
            throw new UserException("the profiler agent refused to start in process " + pid + " (code " + code
                    + (cause != null ? ": " + cause : "") + "); the process keeps running");
        } catch (AgentLoadException e) {
            throw new UserException("process " + pid + " could not load the agent " + library + ": " + describe(e));
        } catch (IOException e) {
            throw new UserException("attaching to process " + pid + " failed: " + describe(e));
        } finally {
            try {
                vm.detach();
            } catch (IOException e) {
                // the agent is in or not; a failed detach changes nothing for the user
            }
        }
        myIo.out().println("corvane: the profiler agent is loaded into process " + pid);
        return 0;
    }

    private static String describe(Exception e) {
        String message = e.getMessage();
        return message == null || message.isBlank() ? e.getClass().getSimpleName() : message.trim();
    }
}
