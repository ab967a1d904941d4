package com.corvane.commands;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.FileTime;
import java.util.HashMap;
import java.util.Map;
import java.util.stream.Stream;

/** The snapshot files of a folder with their modification times, to tell which one a run wrote. */
final class SnapshotFiles {
    static final String EXTENSION = ".snapshot";

    private final Map<Path, FileTime> myTimes;

    private SnapshotFiles(Map<Path, FileTime> times) {
        myTimes = times;
    }

    static SnapshotFiles scan(Path folder) {
        Map<Path, FileTime> times = new HashMap<>();
        if (Files.isDirectory(folder)) {
            try (Stream<Path> files = Files.list(folder)) {
                files.filter(p -> p.getFileName().toString().endsWith(EXTENSION) && Files.isRegularFile(p))
                        .forEach(p -> {
                            try {
                                times.put(p, Files.getLastModifiedTime(p));
                            } catch (IOException e) {
                                // vanished meanwhile
                            }
                        });
            } catch (IOException e) {
                // an unreadable folder holds no snapshot we could show
            }
        }
        return new SnapshotFiles(times);
    }

    /** The newest file that is new or changed since {@code before}; null if there is none. */
    Path newestSince(SnapshotFiles before) {
        Path newest = null;
        FileTime newestTime = null;
        for (Map.Entry<Path, FileTime> entry : myTimes.entrySet()) {
            FileTime old = before.myTimes.get(entry.getKey());
            if (old != null && old.equals(entry.getValue())) {
                continue;
            }
            if (newestTime == null || entry.getValue().compareTo(newestTime) > 0) {
                newest = entry.getKey();
                newestTime = entry.getValue();
            }
        }
        return newest;
    }

    /** Tells where a snapshot went, and how to read it. */
    static void noteWritten(Io io, Path snapshot) {
        io.note("snapshot written: " + snapshot + "  (corvane report " + quoteForShell(snapshot) + ")");
    }

    private static String quoteForShell(Path path) {
        String text = path.toString();
        return text.matches("[A-Za-z0-9_./+:@%-]+") ? text : "'" + text.replace("'", "'\\''") + "'";
    }
}
