package com.corvane.runtime;

import java.io.File;

/** Where snapshots go when the {@code dir} option says nothing: "snapshots" in the user's home. */
final class SnapshotDirectory0 {
    private SnapshotDirectory0() {
    }

    static File getSnapshotDirectory() {
        File folder = new File(System.getProperty("user.home"), "snapshots");
        folder.mkdirs();
        return folder;
    }

    /** A folder that every user of the machine can read, for snapshots handed over to others. */
    static File getPublicSnapshotDirectory() {
        File folder = new File(System.getProperty("java.io.tmpdir"), "corvane-snapshots");
        if (folder.mkdirs()) {
            folder.setWritable(true, false);
            folder.setReadable(true, false);
        }
        return folder;
    }
}
