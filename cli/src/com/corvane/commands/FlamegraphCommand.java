package com.corvane.commands;

import com.corvane.flame.FlameGraph;
import com.corvane.profile.Profile;
import com.corvane.profile.Summary;
import com.corvane.snapshot.Snapshot;
import java.io.BufferedWriter;
import java.io.IOException;
import java.io.OutputStreamWriter;
import java.io.Writer;
import java.nio.charset.StandardCharsets;
import java.nio.file.AccessDeniedException;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

@Command(name = "flamegraph", sortOptions = false, mixinStandardHelpOptions = true,
        description = {"Draws a snapshot's CPU time, or its recorded allocations, as a flame graph.", "",
            "Writes one HTML file that opens in any browser without network (click to zoom, search, tooltips),"
                + " or folded stacks for other flame graph tools.", ""},
        footer = {"", "Examples:", "  corvane flamegraph app.snapshot -o app.html",
            "  corvane flamegraph --allocations app.snapshot -o app-allocations.html",
            "  corvane flamegraph app.snapshot --format collapsed > app.folded"})
public final class FlamegraphCommand implements Callable<Integer> {
    enum Format { html, collapsed }

    @Parameters(index = "0", paramLabel = "<snapshot>", description = "The snapshot file.")
    Path mySnapshot;

    @Option(names = {"-o", "--output"}, paramLabel = "<file>",
            description = "Output file; '-' is standard output. Default for html: <snapshot name>.html in the"
                    + " current folder; for collapsed: standard output.")
    String myOutput;

    @Option(names = "--format", paramLabel = "<format>", defaultValue = "html",
            description = "html (default) or collapsed: lines \"frame;frame;frame <own time in ns>\".")
    Format myFormat;

    @Option(names = "--threads", description = "One tower per thread, with the thread as the lowest frame,"
            + " instead of all threads merged.")
    boolean myPerThread;

    @Option(names = "--allocations", description = "Allocation stacks instead of CPU time: the width of a frame"
            + " is the bytes allocated in it and below, the allocated classes are the top frames; in collapsed"
            + " format the value is bytes.")
    boolean myAllocations;

    @Mixin
    ThreadSelection.Options myThreads = new ThreadSelection.Options();

    private final Io myIo;

    public FlamegraphCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() throws IOException {
        String output = myOutput;
        if (output == null) {
            output = myFormat == Format.collapsed ? "-" : defaultHtmlName(mySnapshot);
        }
        SnapshotLoading.Loaded loaded = SnapshotLoading.load(mySnapshot, myIo);
        Profile profile = myThreads.apply(myAllocations ? SnapshotLoading.allocations(loaded.snapshot(), mySnapshot)
                : loaded.profile());
        if (profile.totalNs() <= 0) {
            myIo.note(myAllocations ? "this snapshot holds no recorded allocations: allocation recording with stacks"
                    + " was off" : "this snapshot holds no CPU time: CPU sampling or tracing was off");
        }
        boolean toStdout = output.equals("-");
        Path target = toStdout ? null : Paths.get(output);
        try (Writer out = toStdout
                ? new BufferedWriter(new OutputStreamWriter(myIo.out(), StandardCharsets.UTF_8))
                : Files.newBufferedWriter(target, StandardCharsets.UTF_8)) {
            if (myFormat == Format.collapsed) {
                FlameGraph.writeCollapsed(profile, myPerThread, out);
            } else {
                FlameGraph.writeHtml(profile, myPerThread, title(loaded.snapshot()),
                        subtitle(loaded.snapshot()), myAllocations ? "bytes" : "ns", out);
            }
        } catch (NoSuchFileException e) {
            throw new UserException("cannot write " + output + ": no such folder");
        } catch (AccessDeniedException e) {
            throw new UserException("cannot write " + output + ": permission denied");
        } catch (IOException e) {
            throw new UserException("cannot write " + output + ": "
                    + (e.getMessage() == null ? e.getClass().getSimpleName() : e.getMessage()));
        }
        if (!toStdout) {
            myIo.note("flame graph written: " + target.toAbsolutePath());
        }
        return 0;
    }

    private static String defaultHtmlName(Path snapshot) {
        String name = snapshot.getFileName().toString();
        if (name.endsWith(SnapshotFiles.EXTENSION)) {
            name = name.substring(0, name.length() - SnapshotFiles.EXTENSION.length());
        }
        return name + ".html";
    }

    private String title(Snapshot snapshot) {
        String session = snapshot.header("session_name");
        return (myAllocations ? "Allocation flame graph" : "CPU flame graph")
                + (session != null && !session.isEmpty() ? ": " + session : "");
    }

    private String subtitle(Snapshot snapshot) {
        if (myAllocations) {
            Long mode = snapshot.longProperty("kzt.last.allocation.recording.mode");
            return snapshot.file().getFileName() + ", allocations " + Summary.allocationMode(mode == null ? 0 : mode)
                    + ", width in bytes";
        }
        Long mode = snapshot.longProperty("kzt.last.cpu.profiling.mode");
        return snapshot.file().getFileName() + ", CPU " + Summary.cpuMode(mode == null ? 0 : mode);
    }
}
