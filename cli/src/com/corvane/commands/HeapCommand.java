package com.corvane.commands;

import com.corvane.heap.HeapAnalysis;
import com.corvane.heap.HeapDump;
import com.corvane.heap.HeapReport;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotFormatException;
import com.corvane.snapshot.SnapshotReader;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Comparator;
import java.util.Map;
import java.util.concurrent.Callable;
import java.util.function.LongBinaryOperator;
import java.util.stream.Stream;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

@Command(name = "heap", sortOptions = false, mixinStandardHelpOptions = true,
        description = {"Analyses the heap of a memory snapshot.", "",
            "Prints the class histogram of the objects that the GC roots reach, with instance counts, shallow and"
                + " retained sizes, and the biggest objects by retained size with the chain of objects that dominate"
                + " them. The retained size of an object is what the heap would lose with it: its own size and that of"
                + " every object reachable only through it; that of a class, what its instances retain together"
                + " (instances inside others of the same class count once).", ""},
        footer = {"", "Examples:", "  corvane heap app-memory.snapshot",
            "  corvane heap --classes 50 --biggest 0 app-memory.snapshot",
            "  corvane heap --path-to-roots com.acme.Session app-memory.snapshot",
            "  corvane heap --path-to-roots 4711 --json app-memory.snapshot"})
public final class HeapCommand implements Callable<Integer> {
    @Parameters(index = "0", paramLabel = "<snapshot>", description = "The memory snapshot file.")
    Path mySnapshot;

    @Option(names = "--classes", paramLabel = "<n>", defaultValue = "20",
            description = "Classes in the histogram (default: ${DEFAULT-VALUE}).")
    int myClasses;

    @Option(names = "--biggest", paramLabel = "<n>", defaultValue = "10",
            description = "Biggest objects listed (default: ${DEFAULT-VALUE}).")
    int myBiggest;

    @Option(names = "--path-to-roots", paramLabel = "<object id | class>",
            description = "A shortest path from the GC roots to this object, or to the instance of this class that"
                    + " lies nearest to them.")
    String myPathTarget;

    @Option(names = "--json", description = "Write the same content as JSON (sizes in bytes).")
    boolean myJson;

    private final Io myIo;

    public HeapCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() throws IOException {
        if (myClasses < 0 || myBiggest < 0) {
            throw new UserException("--classes and --biggest take numbers of 0 or more", 2);
        }
        if (!Files.exists(mySnapshot)) {
            throw new UserException("no such file: " + mySnapshot);
        }
        Path library = AgentLibrary.locate();
        Map<String, Object> report;
        Path folder = Files.createTempDirectory("corvane-heap");
        try (Progress progress = new Progress(myIo)) {
            progress.phase("Reading " + mySnapshot.getFileName());
            Snapshot snapshot = SnapshotReader.read(mySnapshot, progress::update);
            if (!snapshot.isMemorySnapshot()) {
                throw new UserException(mySnapshot + " is a performance snapshot: it holds no heap");
            }
            progress.phase("Reading the heap");
            LongBinaryOperator told = (done, total) -> {
                progress.update(done, total);
                return 0;
            };
            HeapDump dump = HeapDump.read(snapshot, told);
            HeapAnalysis analysis = HeapAnalysis.analyze(dump, library, folder, new HeapAnalysis.Steps() {
                @Override
                public void phase(String name) {
                    progress.phase(name);
                }

                @Override
                public LongBinaryOperator progress() {
                    return told;
                }
            });
            progress.phase("Writing the report");
            report = HeapReport.build(mySnapshot.getFileName().toString(), analysis, myClasses, myBiggest,
                    myPathTarget);
        } catch (SnapshotFormatException e) {
            throw new UserException(mySnapshot + ": " + e.getMessage());
        } catch (IOException e) {
            throw new UserException("cannot read the heap of " + mySnapshot + ": "
                    + (e.getMessage() == null ? e.getClass().getSimpleName() : e.getMessage()));
        } catch (HeapReport.UnknownTarget e) {
            throw new UserException(e.getMessage());
        } finally {
            try (Stream<Path> files = Files.walk(folder)) {
                files.sorted(Comparator.reverseOrder()).forEach(p -> p.toFile().delete());
            }
        }
        if (myJson) {
            myIo.out().println(com.corvane.report.Json.toString(report, true));
        } else {
            HeapReport.print(report, myIo.out());
        }
        myIo.out().flush();
        return 0;
    }
}
