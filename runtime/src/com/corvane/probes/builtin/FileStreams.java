package com.corvane.probes.builtin;

import java.io.File;

/** The table "Files" of the probes Files and FilesLW, and what their callbacks do with it. */
final class FileStreams {
    static final StreamRows FILES = new StreamRows("Files", "File");

    private FileStreams() {
    }

    static void opened(Object stream, File file, String access, boolean counted) {
        FILES.open(stream, file, access, counted);
    }

    static String randomAccess(String mode) {
        return mode != null && mode.indexOf('w') >= 0 ? "read/write" : "read";
    }

    /** A channel of its own, not that of a stream, which has the stream's row. */
    static void channelOpened(Object channel, String path, boolean readable, boolean writable, Object parent,
            boolean counted) {
        if (parent == null) {
            FILES.open(channel, path, readable && writable ? "read/write" : writable ? "write" : "read", counted);
        }
    }
}
