package com.corvane.runtime;

import java.io.ByteArrayOutputStream;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.net.ProtocolException;
import java.nio.charset.Charset;

/**
 * Reading and writing the items of a packet: big-endian numbers as
 * DataOutputStream writes them, strings as a byte count and UTF-8 bytes.
 * Whatever a peer sends, a read either gives a value or throws: counts and
 * lengths are checked before anything is allocated for them.
 */
public final class Packet {
    private static final Charset UTF8 = Charset.forName("UTF-8");
    /** The longest string or byte block a packet may carry. */
    public static final int MAX_BLOCK_SIZE = 64 << 20;
    /** Longer blocks are read in pieces, so that memory follows what really arrived. */
    private static final int READ_PIECE = 1 << 16;

    private Packet() {
    }

    public static void writeHeader(DataOutput out, int type) throws IOException {
        out.writeLong(Protocol.MAGIC);
        out.writeInt(type);
    }

    /** The type of the next packet; a wrong magic is refused. */
    public static int readHeader(DataInput in) throws IOException {
        long magic = in.readLong();
        if (magic != Protocol.MAGIC) {
            throw new ProtocolException("Invalid header magic number:" + magic);
        }
        return in.readInt();
    }

    public static void readHeader(DataInput in, int expectedType) throws IOException {
        int type = readHeader(in);
        if (type != expectedType) {
            throw new ProtocolException("Wrong packet type: " + type + ", expected " + expectedType);
        }
    }

    public static void writeString(DataOutput out, String text) throws IOException {
        if (text == null) {
            out.writeInt(-1);
            return;
        }
        byte[] bytes = text.getBytes(UTF8);
        out.writeInt(bytes.length);
        out.write(bytes);
    }

    /** A string or null (count -1). */
    public static String readString(DataInput in) throws IOException {
        int length = in.readInt();
        if (length == -1) {
            return null;
        }
        if (length < 0) {
            throw new ProtocolException("Negative string length: " + length);
        }
        return new String(readBlock(in, length), UTF8);
    }

    /** An int that must not be negative. */
    public static int readCount(DataInput in) throws IOException {
        int count = in.readInt();
        if (count < 0) {
            throw new ProtocolException("negative count: " + count);
        }
        return count;
    }

    /** A count of bytes, then the bytes. */
    public static byte[] readBytes(DataInput in) throws IOException {
        return readBlock(in, readCount(in));
    }

    private static byte[] readBlock(DataInput in, int length) throws IOException {
        if (length > MAX_BLOCK_SIZE) {
            throw new ProtocolException("Block too long: " + length + " bytes");
        }
        if (length <= READ_PIECE) {
            byte[] bytes = new byte[length];
            in.readFully(bytes);
            return bytes;
        }
        ByteArrayOutputStream collected = new ByteArrayOutputStream(READ_PIECE);
        byte[] piece = new byte[READ_PIECE];
        for (int left = length; left > 0; ) {
            int count = Math.min(left, READ_PIECE);
            in.readFully(piece, 0, count);
            collected.write(piece, 0, count);
            left -= count;
        }
        return collected.toByteArray();
    }
}
