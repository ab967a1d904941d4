package com.corvane.snapshot;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;

/**
 * Big-endian reads from a snapshot file that know their file offset, so that
 * every failure can say what was being read and where. A limit (the end of
 * the enclosing record) keeps one record's items from reading into the next.
 */
final class SnapshotInput implements RowSource, AutoCloseable {
    private static final int BUFFER_SIZE = 1 << 20;

    private final FileChannel myChannel;
    private final long mySize;
    private final ByteBuffer myBuffer = ByteBuffer.allocate(BUFFER_SIZE).order(ByteOrder.BIG_ENDIAN);
    private long myBufferStart;
    private long myLimit;
    private String myLimitOwner = "";
    private boolean myLimitIsRecordEnd;

    SnapshotInput(Path file) throws IOException {
        myChannel = FileChannel.open(file, StandardOpenOption.READ);
        mySize = myChannel.size();
        myLimit = mySize;
        myBuffer.limit(0);
    }

    long size() {
        return mySize;
    }

    @Override
    public long position() {
        return myBufferStart + myBuffer.position();
    }

    boolean atEnd() {
        return position() >= mySize;
    }

    /**
     * Restricts reads to the record that ends at {@code end}, named {@code owner}
     * in messages. The record is whole in the file, so reading past its end
     * means its contents are wrong, not that the file was cut.
     */
    void setLimit(long end, String owner) {
        myLimit = end;
        myLimitOwner = owner;
        myLimitIsRecordEnd = true;
    }

    void clearLimit() {
        myLimit = mySize;
        myLimitOwner = "";
        myLimitIsRecordEnd = false;
    }

    /** Whether a read that goes past the limit is a contents fault rather than a cut file. */
    boolean limitIsRecordEnd() {
        return myLimitIsRecordEnd;
    }

    long limit() {
        return myLimit;
    }

    long remaining() {
        return myLimit - position();
    }

    private void need(long count, String what) throws IOException, SnapshotFormatException {
        long at = position();
        if (at + count > myLimit) {
            if (myLimitIsRecordEnd) {
                throw SnapshotFormatException.corrupt(at, what + " runs past the end of " + myLimitOwner
                        + " at offset " + myLimit);
            }
            throw SnapshotFormatException.truncated(mySize, what, at);
        }
        if (myBuffer.remaining() >= count) {
            return;
        }
        // Keep the unread bytes, then fill the rest: the buffer then begins at 'at'.
        myBuffer.compact();
        myBufferStart = at;
        long readAt = at + myBuffer.position();
        while (myBuffer.position() < count && readAt < mySize) {
            int n = myChannel.read(myBuffer, readAt);
            if (n <= 0) {
                break;
            }
            readAt += n;
        }
        myBuffer.flip();
        if (myBuffer.remaining() < count) {
            throw SnapshotFormatException.truncated(mySize, what, at);
        }
    }

    int readByte(String what) throws IOException, SnapshotFormatException {
        need(1, what);
        return myBuffer.get() & 0xFF;
    }

    int readShort(String what) throws IOException, SnapshotFormatException {
        need(2, what);
        return myBuffer.getShort();
    }

    @Override
    public int readInt(String what) throws IOException, SnapshotFormatException {
        need(4, what);
        return myBuffer.getInt();
    }

    @Override
    public long readLong(String what) throws IOException, SnapshotFormatException {
        need(8, what);
        return myBuffer.getLong();
    }

    byte[] readBytes(int count, String what) throws IOException, SnapshotFormatException {
        if (count <= BUFFER_SIZE) {
            need(count, what);
            byte[] bytes = new byte[count];
            myBuffer.get(bytes);
            return bytes;
        }
        long at = position();
        if (at + count > myLimit) {
            need(count, what); // throws with the right message
        }
        byte[] bytes = new byte[count];
        int done = 0;
        while (done < count) {
            int chunk = Math.min(BUFFER_SIZE, count - done);
            need(chunk, what);
            myBuffer.get(bytes, done, chunk);
            done += chunk;
        }
        return bytes;
    }

    /**
     * A string: int byte count, then the bytes. The count -1 is a null text,
     * allowed only where {@code nullable}.
     */
    @Override
    public String readString(String what, boolean nullable) throws IOException, SnapshotFormatException {
        long at = position();
        int length = readInt(what + " length");
        if (length == -1 && nullable) {
            return null;
        }
        if (length < 0) {
            throw SnapshotFormatException.corrupt(at, what + " has the negative length " + length);
        }
        if (position() + length > myLimit) {
            if (myLimitIsRecordEnd) {
                throw SnapshotFormatException.corrupt(at, what + " of " + length + " bytes runs past the end of "
                        + myLimitOwner + " at offset " + myLimit);
            }
            throw SnapshotFormatException.truncated(mySize, what + " of " + length + " bytes", at);
        }
        return new String(readBytes(length, what), StandardCharsets.UTF_8);
    }

    @Override
    public void requireRoom(long bytes, long countAt, String what) throws IOException, SnapshotFormatException {
        if (position() + bytes > myLimit) {
            if (myLimitIsRecordEnd) {
                throw SnapshotFormatException.corrupt(countAt,
                        what + " announces " + bytes + " bytes, more than is left of its record");
            }
            throw SnapshotFormatException.truncated(mySize, what, countAt);
        }
    }

    /** Moves to {@code offset}, which must lie within the file. */
    void seek(long offset) {
        if (offset >= myBufferStart && offset <= myBufferStart + myBuffer.limit()) {
            myBuffer.position((int) (offset - myBufferStart));
            return;
        }
        myBufferStart = offset;
        myBuffer.clear();
        myBuffer.limit(0);
    }

    @Override
    public void close() throws IOException {
        myChannel.close();
    }
}
