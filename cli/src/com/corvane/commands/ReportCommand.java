package com.corvane.commands;

import com.corvane.heap.HeapDump;
import com.corvane.heap.HeapSummary;
import com.corvane.profile.Profile;
import com.corvane.report.Json;
import com.corvane.report.Report;
import com.corvane.report.TextReport;
import java.io.IOException;
import java.nio.file.Path;
import java.util.Map;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

@Command(name = "report", sortOptions = false, mixinStandardHelpOptions = true,
        description = {"Prints a summary, hot spots, threads and call tree of a snapshot.", "",
            "The summary tells session, JVM, modes and times; the hot spots own and total time per method, with"
                + " call counts when tracing, overall and for each thread; then time per thread and the call tree of each"
                + " thread. Tracing counts wall time by default, so threads that wait a lot show their waiting"
                + " methods on top: the per-thread lists and --app-threads or --thread help there.", ""},
        footer = {"", "Examples:", "  corvane report app-2024-05-01-shutdown.snapshot",
            "  corvane report --top 3 --depth 20 app.snapshot",
            "  corvane report --brief --app-threads --hotspots 10 app.snapshot",
            "  corvane report --thread 'pool-*' --thread main app.snapshot", "  corvane report --json app.snapshot > app.json"})
public final class ReportCommand implements Callable<Integer> {
    @Parameters(index = "0", paramLabel = "<snapshot>", description = "The snapshot file.")
    Path mySnapshot;

    @Option(names = "--json", description = "Write the same content as JSON (times in nanoseconds).")
    boolean myJson;

    @Option(names = "--hotspots", paramLabel = "<n>", defaultValue = "20",
            description = "Methods in the hot spot list (default: ${DEFAULT-VALUE}).")
    int myHotSpots;

    @Option(names = "--thread-hotspots", paramLabel = "<n>", defaultValue = "5",
            description = "Methods in each thread's own hot spot list; 0 leaves these lists out"
                    + " (default: ${DEFAULT-VALUE}).")
    int myThreadHotSpots;

    @Mixin
    ThreadSelection.Options myThreads = new ThreadSelection.Options();

    @Option(names = "--classes", paramLabel = "<n>", defaultValue = "20",
            description = "Memory snapshots: classes in the class histogram (default: ${DEFAULT-VALUE}).")
    int myClasses;

    @Option(names = "--brief", description = "Text: only the hot spots, overall and per thread.")
    boolean myBrief;

    @Option(names = "--top", paramLabel = "<n>", defaultValue = "5",
            description = "Callees shown for each call in the tree, the most expensive first (default: ${DEFAULT-VALUE}).")
    int myTop;

    @Option(names = "--depth", paramLabel = "<n>", defaultValue = "12",
            description = "Levels of the call tree below each thread (default: ${DEFAULT-VALUE}).")
    int myDepth;

    private final Io myIo;

    public ReportCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        if (myHotSpots < 0 || myThreadHotSpots < 0 || myTop < 0 || myDepth < 0 || myClasses < 0) {
            throw new UserException("--hotspots, --thread-hotspots, --top, --depth and --classes take numbers of 0 or more", 2);
        }
        SnapshotLoading.Loaded loaded = SnapshotLoading.load(mySnapshot, myIo);
        Profile profile = myThreads.apply(loaded.profile());
        Map<String, Object> report = Report.build(loaded.snapshot(), profile,
                new Report.Limits(myHotSpots, myThreadHotSpots, myTop, myDepth));
        if (loaded.snapshot().memoryPart() != null) {
            try {
                report.put("heap", HeapSummary.build(HeapDump.read(loaded.snapshot(), (done, total) -> 0), myClasses));
            } catch (IOException e) {
                throw new UserException("cannot read the heap of " + mySnapshot + ": " + e.getMessage());
            }
        }
        if (myJson) {
            StringBuilder text = new StringBuilder();
            Json.write(report, text, true, false);
            myIo.out().println(text);
            myIo.out().flush();
        } else {
            TextReport.print(report, myBrief, myIo.out());
        }
        return 0;
    }
}
