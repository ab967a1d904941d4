package com.corvane.snapshot;

import java.io.IOException;

/**
 * Where table rows are read from: a snapshot file, or a live table stream.
 * Each read names what it reads, so that a failure says where it was.
 */
interface RowSource {
    long position();

    int readInt(String what) throws IOException, SnapshotFormatException;

    long readLong(String what) throws IOException, SnapshotFormatException;

    String readString(String what, boolean nullable) throws IOException, SnapshotFormatException;

    /** Fails before anything is allocated for a count that the rest of the input cannot hold. */
    void requireRoom(long bytes, long countAt, String what) throws IOException, SnapshotFormatException;
}
