package com.corvane.commands;

import com.corvane.live.AgentClient;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;

@Command(name = "threads", mixinStandardHelpOptions = true,
        description = {"Prints the stacks of all threads of a running JVM, with the locks they hold and wait for.",
            ""},
        footer = {"", "Example:", "  corvane threads 12345"})
public final class ThreadsCommand implements Callable<Integer> {
    @Mixin
    LiveTarget myTarget = new LiveTarget();

    private final Io myIo;

    public ThreadsCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        myIo.out().print(myTarget.talk(AgentClient::threadDump));
        myIo.out().flush();
        return 0;
    }
}
