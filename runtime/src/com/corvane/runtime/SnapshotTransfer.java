package com.corvane.runtime;

import java.io.DataOutputStream;
import java.io.EOFException;
import java.io.File;
import java.io.FileInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.util.zip.CRC32;
import java.util.zip.Deflater;

/**
 * Sends a snapshot file down the control connection, as it is or in
 * independently deflated blocks. Only snapshots that this agent captured, and
 * the files of the public snapshot folder, may be fetched.
 */
final class SnapshotTransfer {
    private static final int DIGEST_BYTES = 1 << 16;

    private SnapshotTransfer() {
    }

    static void transfer(Request request, String path, final boolean compressed) throws IOException {
        final File file = path == null ? null : new File(path);
        final String refusal = refusal(path, file);
        request.streamed(out -> {
            if (refusal != null) {
                Request.writeError(out, refusal);
                return;
            }
            InputStream in;
            try {
                in = new FileInputStream(file);
            } catch (IOException e) {
                Request.writeError(out, "The file to transfer does not exist: " + path);
                return;
            }
            try {
                long length = file.length();
                Request.writeOk(out);
                out.writeLong(length);
                if (compressed) {
                    sendCompressed(in, out, length);
                } else {
                    sendPlain(in, out, length);
                }
                out.flush();
            } finally {
                in.close();
            }
        });
    }

    private static String refusal(String path, File file) {
        if (file == null) {
            return "File cannot be transferred: unknown snapshot " + path;
        }
        boolean known = Callback.findSnapshot(path) || Core.isPublicDirectory(file.getAbsoluteFile().getParentFile());
        if (!known) {
            return "File cannot be transferred: unknown snapshot " + path;
        }
        if (!file.isFile()) {
            return "The file to transfer does not exist: " + path;
        }
        return null;
    }

    private static void sendPlain(InputStream in, DataOutputStream out, long length) throws IOException {
        byte[] block = new byte[Protocol.TRANSFER_CHUNK_SIZE];
        for (long left = length; left > 0; ) {
            int count = fill(in, block, (int) Math.min(block.length, left));
            out.write(block, 0, count);
            left -= count;
        }
    }

    // Each block is deflated on its own into a buffer of a fixed size: what does not fit is cut, as the
    // protocol has it. The reader goes by the file's length.
    private static void sendCompressed(InputStream in, DataOutputStream out, long length) throws IOException {
        byte[] block = new byte[Protocol.TRANSFER_UNCOMPRESSED_CHUNK_SIZE];
        byte[] packed = new byte[Protocol.TRANSFER_COMPRESSED_CHUNK_SIZE];
        Deflater deflater = new Deflater(Deflater.DEFAULT_COMPRESSION, true);
        try {
            for (long left = length; left > 0; ) {
                int count = fill(in, block, (int) Math.min(block.length, left));
                deflater.reset();
                deflater.setInput(block, 0, count);
                deflater.finish();
                int size = deflater.deflate(packed);
                out.writeInt(size);
                out.write(packed, 0, size);
                left -= count;
            }
        } finally {
            deflater.end();
        }
    }

    private static int fill(InputStream in, byte[] block, int count) throws IOException {
        int done = 0;
        while (done < count) {
            int n = in.read(block, done, count - done);
            if (n < 0) {
                throw new EOFException("the snapshot file became shorter while it was sent");
            }
            done += n;
        }
        return done;
    }

    /** A check value of the file: the CRC-32 of its first 64 KiB. */
    static int digest(File file) {
        CRC32 crc = new CRC32();
        byte[] head = new byte[DIGEST_BYTES];
        try (InputStream in = new FileInputStream(file)) {
            int count = 0;
            for (int n; count < head.length && (n = in.read(head, count, head.length - count)) > 0; ) {
                count += n;
            }
            crc.update(head, 0, count);
        } catch (IOException e) {
            return 0;
        }
        return (int) crc.getValue();
    }
}
