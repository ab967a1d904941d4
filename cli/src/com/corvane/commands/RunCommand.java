package com.corvane.commands;

import java.io.IOException;
import java.io.InputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

@Command(name = "run", sortOptions = false, mixinStandardHelpOptions = true,
        description = {"Runs a Java program with the profiler agent.", "",
            "The program's input, output and exit code pass through. When it ends, the agent writes a performance"
                + " snapshot and corvane tells where it is.", ""},
        footer = {"", "Examples:", "  corvane run -- java -jar app.jar",
            "  corvane run --tracing --dir /tmp/snapshots -- java -cp classes Main",
            "  corvane run --allocations=each-100 -- java -jar app.jar",
            "  corvane run --monitors --exceptions=off -- java -jar app.jar",
            "  corvane run --memory -- java -jar app.jar",
            "  corvane run --trigger-file triggers.txt -- java -jar app.jar",
            "", "Exit status: the program's own; if the agent refuses to start, its refusal code",
            "(see the README's table), explained in one line."})
public final class RunCommand implements Callable<Integer> {
    private static final Pattern LOG_FILE_LINE =
            Pattern.compile("^\\[Corvane Java Profiler [^\\]]*\\] Log file: (.+)$");
    private static final String REFUSAL_PREFIX = "Cannot start";
    private static final String STARTED_LOG_LINE = "agentInit: Core.init() called";

    static final class Mode {
        @Option(names = "--sampling", description = "CPU sampling from the start (the default): cheap, no call counts.")
        boolean sampling;

        @Option(names = "--tracing", description = "CPU tracing from the start: exact call counts, more overhead.")
        boolean tracing;
    }

    @ArgGroup(exclusive = true, multiplicity = "0..1")
    Mode myMode;

    @Option(names = "--allocations", arity = "0..1", fallbackValue = "", paramLabel = "each-N",
            description = "Record allocations from the start, with the stack of every N-th object and of every object"
                    + " of 4096 bytes or more (default: each-10). 'sampled' takes the stacks of CPU sampling,"
                    + " 'counting' counts objects per allocation site without stacks.")
    String myAllocations;

    @Option(names = "--monitors", description = "Record from the start how long threads are blocked on monitors"
            + " and wait in Object.wait, by thread, place, owner and monitor class.")
    boolean myMonitors;

    @Option(names = "--exceptions", paramLabel = "on|off|disable",
            description = "Exception telemetry, counted by thread, class, throw and catch place: on (the default),"
                    + " off (can be switched on later), or disable (not even available).")
    String myExceptions;

    @Option(names = "--memory", description = "Write a memory snapshot at exit: the whole heap with the profile.")
    boolean myMemory;

    @Option(names = "--agent-options", paramLabel = "<text>",
            description = "More agent options, comma-separated, e.g. 'monitors,alloceach=100'. They come last,"
                    + " so they win over corvane's own.")
    String myAgentOptions;

    @Option(names = "--trigger-file", paramLabel = "<file>",
            description = "Triggers for the agent to act on, one listener a line with its actions below it,"
                    + " indented by two blanks (see the README).")
    Path myTriggerFile;

    @Option(names = "--dir", paramLabel = "<folder>",
            description = "Folder for the snapshot (created if missing). Default: the current folder.")
    Path myDir;

    @Parameters(arity = "1..*", paramLabel = "<command>",
            description = "The program: java and its arguments (after --, so that its options stay its own).")
    List<String> myCommand;

    private final Io myIo;

    public RunCommand(Io io) {
        myIo = io;
    }

    /** triggers=<absolute path>, or null without a file; a file that cannot be read is the user's error. */
    static String triggersOption(Path file) {
        if (file == null) {
            return null;
        }
        Path absolute = file.toAbsolutePath().normalize();
        if (!Files.isRegularFile(absolute) || !Files.isReadable(absolute)) {
            throw new UserException("cannot read the triggers file " + absolute);
        }
        return AgentOptions.option("triggers", absolute.toString());
    }

    @Override
    public Integer call() throws Exception {
        Path library = AgentLibrary.locate();
        Path dir = (myDir == null ? Paths.get("") : myDir).toAbsolutePath().normalize();
        try {
            Files.createDirectories(dir);
        } catch (IOException e) {
            throw new UserException("cannot create the snapshot folder " + dir + ": " + reason(e));
        }
        String mode = myMode != null && myMode.tracing ? "tracing" : "sampling";
        String options = AgentOptions.join(mode, allocationOption(myAllocations), myMonitors ? "monitors" : null,
                exceptionsOption(myExceptions), myMemory ? "onexit=memory" : "onexit=snapshot",
                AgentOptions.option("dir", dir.toString()), triggersOption(myTriggerFile), myAgentOptions);

        ProcessBuilder builder = new ProcessBuilder(withAgent(myCommand, library, options));
        builder.redirectInput(ProcessBuilder.Redirect.INHERIT);
        builder.redirectOutput(ProcessBuilder.Redirect.INHERIT);
        builder.redirectError(ProcessBuilder.Redirect.PIPE);
        if (!isJava(myCommand.get(0))) {
            // Not the java launcher itself (a script, say): the JVMs it starts pick the agent up from here.
            String argument = agentPathArgument(library, options);
            if (argument.chars().anyMatch(Character::isWhitespace)) {
                throw new UserException("the command does not start with java, and the agent's path or options"
                        + " hold a blank, which JAVA_TOOL_OPTIONS cannot carry: " + argument);
            }
            String existing = System.getenv("JAVA_TOOL_OPTIONS");
            builder.environment().put("JAVA_TOOL_OPTIONS",
                    existing == null || existing.isBlank() ? argument : argument + " " + existing);
        }

        // Which folder the agent will use: the last dir= wins, including the environment's options.
        String effective = AgentOptions.join(System.getenv("KZT_STARTUP_OPTIONS_PRE"), options,
                System.getenv("KZT_STARTUP_OPTIONS_POST"));
        Path snapshotDir = Paths.get(AgentOptions.lastValue(effective, "dir")).toAbsolutePath();
        SnapshotFiles before = SnapshotFiles.scan(snapshotDir);

        Process process;
        try {
            process = builder.start();
        } catch (IOException e) {
            throw new UserException("cannot start " + myCommand.get(0) + ": " + reason(e));
        }
        StderrPump pump = new StderrPump(process.getErrorStream(), myIo.err());
        pump.start();
        int code;
        InterruptGuard guard = new InterruptGuard();
        try {
            code = process.waitFor();
        } finally {
            guard.close();
        }
        pump.join();

        Path logFile = pump.logFile != null ? Paths.get(pump.logFile) : findLog(effective, process.pid());
        String cause = AgentExitCodes.cause(code);
        if (cause != null && refused(pump, logFile)) {
            myIo.note("the profiler agent refused to start (exit code " + code + ": " + cause + ")"
                    + (logFile != null ? "; its log: " + logFile : ""));
            return code;
        }
        Path snapshot = SnapshotFiles.scan(snapshotDir).newestSince(before);
        if (snapshot != null) {
            SnapshotFiles.noteWritten(myIo, snapshot);
        } else {
            myIo.note("no snapshot was written to " + snapshotDir
                    + (logFile != null ? "; the agent's log: " + logFile : ""));
        }
        return code;
    }

    /** The agent option of --exceptions: null without it. */
    static String exceptionsOption(String value) {
        if (value == null) {
            return null;
        }
        if (value.equals("on") || value.equals("off") || value.equals("disable")) {
            return "exceptions=" + value;
        }
        throw new UserException("--exceptions takes on, off or disable, not '" + value + "'", 2);
    }

    /** The agent option of --allocations: null without it. */
    static String allocationOption(String value) {
        if (value == null) {
            return null;
        }
        if (value.isEmpty()) {
            return "alloceach=10";
        }
        if (value.equals("sampled")) {
            return "allocsampled";
        }
        if (value.equals("counting")) {
            return "alloc_object_counting";
        }
        String number = value.startsWith("each-") ? value.substring(5) : value;
        if (number.matches("[0-9]{1,9}")) {
            return "alloceach=" + Integer.parseInt(number);
        }
        throw new UserException("--allocations takes each-N (N a number of 0 or more), sampled or counting, not '"
                + value + "'; the program comes after --", 2);
    }

    /** The command with -agentpath after the java launcher, or unchanged when it is not java. */
    static List<String> withAgent(List<String> command, Path library, String options) {
        List<String> result = new ArrayList<>(command);
        if (isJava(command.get(0))) {
            result.add(1, agentPathArgument(library, options));
        }
        return result;
    }

    static String agentPathArgument(Path library, String options) {
        return "-agentpath:" + library + (options.isEmpty() ? "" : "=" + options);
    }

    static boolean isJava(String program) {
        String name = Paths.get(program).getFileName().toString();
        return name.equals("java");
    }

    private static boolean refused(StderrPump pump, Path logFile) {
        if (pump.sawRefusal) {
            return true;
        }
        if (logFile == null || !Files.isReadable(logFile)) {
            return false;
        }
        try {
            String log = Files.readString(logFile, StandardCharsets.ISO_8859_1);
            return log.contains(REFUSAL_PREFIX) || !log.contains(STARTED_LOG_LINE);
        } catch (IOException e) {
            return false;
        }
    }

    /** The agent's log when it printed no path: <session>-<pid>.log in its log folder. */
    private static Path findLog(String options, long pid) {
        String custom = AgentOptions.lastValue(options, "logdir");
        Path folder;
        if (custom != null) {
            folder = Paths.get(custom);
        } else {
            String home = System.getenv("CORVANE_HOME");
            folder = Paths.get(home != null && !home.isEmpty() ? home : System.getProperty("user.home"), ".kzt", "log");
        }
        String suffix = "-" + pid + ".log";
        try (var files = Files.list(folder)) {
            return files.filter(p -> p.getFileName().toString().endsWith(suffix)).findFirst().orElse(null);
        } catch (IOException e) {
            return null;
        }
    }

    private static String reason(IOException e) {
        String message = e.getMessage();
        return message == null ? e.getClass().getSimpleName() : message;
    }

    /**
     * Copies the program's stderr through as it comes, and watches its lines
     * for the agent's log path and refusal.
     */
    private static final class StderrPump extends Thread {
        private final InputStream myIn;
        private final PrintStream myOut;
        private final java.io.ByteArrayOutputStream myLine = new java.io.ByteArrayOutputStream();
        volatile String logFile;
        volatile boolean sawRefusal;

        StderrPump(InputStream in, PrintStream out) {
            super("corvane-stderr");
            setDaemon(true);
            myIn = in;
            myOut = out;
        }

        @Override
        public void run() {
            byte[] buffer = new byte[8192];
            try {
                int n;
                while ((n = myIn.read(buffer)) > 0) {
                    myOut.write(buffer, 0, n);
                    myOut.flush();
                    scan(buffer, n);
                }
            } catch (IOException e) {
                // the program closed its stderr
            }
            if (myLine.size() > 0) {
                inspect(myLine.toString(StandardCharsets.UTF_8));
            }
        }

        private void scan(byte[] bytes, int count) {
            for (int i = 0; i < count; i++) {
                if (bytes[i] == '\n') {
                    inspect(myLine.toString(StandardCharsets.UTF_8));
                    myLine.reset();
                } else if (myLine.size() < 4096) {
                    myLine.write(bytes[i]);
                }
            }
        }

        private void inspect(String line) {
            String text = line.endsWith("\r") ? line.substring(0, line.length() - 1) : line;
            Matcher matcher = LOG_FILE_LINE.matcher(text);
            if (matcher.matches() && logFile == null) {
                logFile = matcher.group(1).trim();
            }
            if (text.startsWith(REFUSAL_PREFIX)) {
                sawRefusal = true;
            }
        }
    }
}
