package com.corvane;

import com.corvane.commands.AttachCommand;
import com.corvane.commands.ClearCommand;
import com.corvane.commands.EventsCommand;
import com.corvane.commands.FlamegraphCommand;
import com.corvane.commands.HeapCommand;
import com.corvane.commands.Io;
import com.corvane.commands.ListCommand;
import com.corvane.commands.ReportCommand;
import com.corvane.commands.RunCommand;
import com.corvane.commands.SnapshotCommand;
import com.corvane.commands.StartCommand;
import com.corvane.commands.StatusCommand;
import com.corvane.commands.StopCommand;
import com.corvane.commands.TelemetryCommand;
import com.corvane.commands.ThreadsCommand;
import com.corvane.commands.UserException;
import java.io.PrintWriter;
import java.lang.reflect.Constructor;
import java.util.concurrent.atomic.AtomicInteger;
import picocli.AutoComplete;
import picocli.CommandLine;
import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Spec;

/** The corvane command-line tool: runs and attaches the profiler, reads its snapshots. */
@Command(name = "corvane", mixinStandardHelpOptions = true, versionProvider = Main.Version.class,
        description = {"Corvane Java Profiler: run or attach the profiler agent, control it in running JVMs, read"
            + " its snapshots.", ""},
        subcommands = {RunCommand.class, AttachCommand.class, ListCommand.class, StatusCommand.class,
            StartCommand.class, StopCommand.class, ClearCommand.class, SnapshotCommand.class, ThreadsCommand.class,
            TelemetryCommand.class, ReportCommand.class, EventsCommand.class, FlamegraphCommand.class, HeapCommand.class, CommandLine.HelpCommand.class,
            AutoComplete.GenerateCompletion.class},
        footer = {"", "Run 'corvane <command> --help' for a command's options.",
            "Shell completion: source <(corvane generate-completion)"})
public final class Main implements Runnable {
    public static final String VERSION = "Corvane Java Profiler 2019.8-b109";
    static final int EXIT_USAGE = 2;
    static final int EXIT_INTERNAL = 70;
    /** Deep call trees are walked recursively; give the work a stack to match. */
    private static final long STACK_SIZE = 512L << 20;

    @Spec
    CommandSpec mySpec;

    @Override
    public void run() {
        // No command: the overview, on stderr, as a usage error.
        mySpec.commandLine().usage(mySpec.commandLine().getErr());
        throw new MissingCommand();
    }

    private static final class MissingCommand extends RuntimeException {
        private static final long serialVersionUID = 1L;
    }

    static final class Version implements CommandLine.IVersionProvider {
        @Override
        public String[] getVersion() {
            return new String[] {"corvane, " + VERSION};
        }
    }

    public static void main(String[] args) throws InterruptedException {
        AtomicInteger code = new AtomicInteger(EXIT_INTERNAL);
        Thread worker = new Thread(null, () -> code.set(execute(args, Io.system())), "corvane", STACK_SIZE);
        worker.start();
        worker.join();
        System.exit(code.get());
    }

    /** Runs one command line and returns its exit code; nothing here exits the JVM. */
    public static int execute(String[] args, Io io) {
        CommandLine commandLine = new CommandLine(new Main(), new Factory(io));
        commandLine.setOut(new PrintWriter(io.out(), true));
        commandLine.setErr(new PrintWriter(io.err(), true));
        commandLine.getSubcommands().get("run").setStopAtPositional(true);
        commandLine.setParameterExceptionHandler((e, arguments) -> {
            String path = e.getCommandLine().getCommandSpec().qualifiedName();
            io.err().println(path + ": " + e.getMessage() + " (see '" + path + " --help')");
            io.err().flush();
            return EXIT_USAGE;
        });
        commandLine.setExecutionExceptionHandler((e, cmd, parseResult) -> {
            if (e instanceof MissingCommand) {
                return EXIT_USAGE;
            }
            if (e instanceof UserException) {
                io.note(e.getMessage());
                return ((UserException) e).exitCode();
            }
            io.note("internal error: " + e + (System.getenv("CORVANE_DEBUG") == null
                    ? " (set CORVANE_DEBUG=1 for details)" : ""));
            if (System.getenv("CORVANE_DEBUG") != null) {
                e.printStackTrace(io.err());
            }
            return EXIT_INTERNAL;
        });
        return commandLine.execute(args);
    }

    /** Gives each command the streams it writes to. */
    private static final class Factory implements CommandLine.IFactory {
        private final Io myIo;
        private final CommandLine.IFactory myDefault = CommandLine.defaultFactory();

        Factory(Io io) {
            myIo = io;
        }

        @Override
        public <K> K create(Class<K> type) throws Exception {
            try {
                Constructor<K> withIo = type.getDeclaredConstructor(Io.class);
                return withIo.newInstance(myIo);
            } catch (NoSuchMethodException e) {
                return myDefault.create(type);
            }
        }
    }
}
