package com.corvane.snapshot;

/**
 * A snapshot file that cannot be read: not a snapshot at all, cut short, or
 * with contents that contradict the format. The message is one line for the
 * user and names the place; {@link #offset()} is -1 where the fault is in the
 * model rather than at a byte position.
 */
public final class SnapshotFormatException extends Exception {
    private static final long serialVersionUID = 1L;

    public enum Kind { NOT_A_SNAPSHOT, TRUNCATED, CORRUPT }

    private final Kind myKind;
    private final long myOffset;

    public SnapshotFormatException(Kind kind, long offset, String message) {
        super(message);
        myKind = kind;
        myOffset = offset;
    }

    static SnapshotFormatException truncated(long fileSize, String what, long whereStarted) {
        return new SnapshotFormatException(Kind.TRUNCATED, fileSize,
                "truncated snapshot: the file ends at offset " + fileSize + " inside " + what
                        + " (which starts at offset " + whereStarted + ")");
    }

    static SnapshotFormatException corrupt(long offset, String what) {
        return new SnapshotFormatException(Kind.CORRUPT, offset,
                "corrupt snapshot: " + what + (offset >= 0 ? " (at offset " + offset + ")" : ""));
    }

    public Kind kind() {
        return myKind;
    }

    public long offset() {
        return myOffset;
    }
}
