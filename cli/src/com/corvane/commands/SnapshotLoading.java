package com.corvane.commands;

import com.corvane.profile.Profile;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotFormatException;
import com.corvane.snapshot.SnapshotReader;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;

/** Reads a snapshot and its profile for a command, turning every failure into one line for the user. */
final class SnapshotLoading {
    record Loaded(Snapshot snapshot, Profile profile) {
    }

    private SnapshotLoading() {
    }

    /** The recorded allocations of a loaded snapshot as a profile. */
    static Profile allocations(Snapshot snapshot, Path file) {
        try {
            return Profile.buildAllocations(snapshot);
        } catch (SnapshotFormatException e) {
            throw new UserException(file + ": " + e.getMessage());
        }
    }

    static Loaded load(Path file, Io io) {
        if (!Files.exists(file)) {
            throw new UserException("no such file: " + file);
        }
        if (Files.isDirectory(file)) {
            throw new UserException(file + " is a folder, not a snapshot file");
        }
        try (Progress progress = new Progress(io)) {
            progress.phase("Reading " + file.getFileName());
            Snapshot snapshot = SnapshotReader.read(file, progress::update);
            progress.phase("Building the call tree");
            return new Loaded(snapshot, Profile.build(snapshot));
        } catch (SnapshotFormatException e) {
            throw new UserException(file + ": " + e.getMessage());
        } catch (NoSuchFileException e) {
            throw new UserException("no such file: " + file);
        } catch (IOException e) {
            throw new UserException("cannot read " + file + ": "
                    + (e.getMessage() == null ? e.getClass().getSimpleName() : e.getMessage()));
        }
    }
}
