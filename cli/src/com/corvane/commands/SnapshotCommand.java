package com.corvane.commands;

import com.corvane.live.AgentClient;
import com.corvane.live.AgentException;
import com.corvane.runtime.SharedConstants;
import java.io.IOException;
import java.io.OutputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.nio.file.StandardCopyOption;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

@Command(name = "snapshot", sortOptions = false, mixinStandardHelpOptions = true,
        description = {"Captures a snapshot in a running JVM and fetches it over the agent's port.", "",
            "The JVM stands still while the snapshot is written; the recordings go on afterwards.", ""},
        footer = {"", "Examples:", "  corvane snapshot 12345", "  corvane snapshot MyApp -o /tmp/myapp.snapshot",
            "  corvane snapshot MyApp --memory", "  corvane snapshot MyApp --hprof -o heap.hprof"})
public final class SnapshotCommand implements Callable<Integer> {
    @Mixin
    LiveTarget myTarget = new LiveTarget();

    @Option(names = {"-o", "--output"}, paramLabel = "<file>",
            description = "Where the snapshot goes: a file, or a folder for the agent's file name. Default: the"
                    + " current folder.")
    Path myOutput;

    @Option(names = "--memory", description = "A memory snapshot: the whole heap with the profile.")
    boolean myMemory;

    @Option(names = "--hprof", description = "A heap dump by the JVM itself, in HPROF format.")
    boolean myHprof;

    private final Io myIo;

    public SnapshotCommand(Io io) {
        myIo = io;
    }

    @Override
    public Integer call() {
        AgentClient client = myTarget.client();
        Path target = myTarget.talk(unused -> fetch(client));
        SnapshotFiles.noteWritten(myIo, target);
        return 0;
    }

    private Path fetch(AgentClient client) throws IOException {
        Path target;
        try (Progress progress = new Progress(myIo)) {
            progress.phase("capturing the snapshot");
            long flags = myHprof ? SharedConstants.SNAPSHOT_FLAG_HPROF
                    : myMemory ? SharedConstants.SNAPSHOT_FLAG_MEMORY : 0;
            String remote = client.captureSnapshot(flags,
                    percent -> progress.update(percent, 100));
            target = target(remote);
            Path partial = target.resolveSibling(target.getFileName() + ".part");
            progress.phase("fetching the snapshot");
            try (OutputStream out = Files.newOutputStream(partial)) {
                client.transferSnapshot(remote, out, progress::updateBytes);
            } catch (IOException e) {
                Files.deleteIfExists(partial);
                throw e;
            }
            Files.move(partial, target, StandardCopyOption.REPLACE_EXISTING);
        } catch (AgentException e) {
            throw e;
        } catch (IOException e) {
            throw new UserException("cannot write the snapshot: " + e.getMessage());
        }
        return target;
    }

    private Path target(String remote) {
        Path name = Paths.get(remote).getFileName();
        if (myOutput == null) {
            return Paths.get("").toAbsolutePath().resolve(name);
        }
        Path output = myOutput.toAbsolutePath();
        return Files.isDirectory(output) ? output.resolve(name) : output;
    }
}
