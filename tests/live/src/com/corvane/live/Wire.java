package com.corvane.live;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.corvane.runtime.Protocol;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.net.Socket;
import java.nio.charset.StandardCharsets;

/**
 * Requests as raw bytes, and answers read back field by field: the tests
 * check the wire itself, not a client's idea of it.
 */
final class Wire {
    private final ByteArrayOutputStream myBytes = new ByteArrayOutputStream();
    private final DataOutputStream myOut = new DataOutputStream(myBytes);

    static Wire request(int type) throws IOException {
        return new Wire().header(type);
    }

    Wire header(int type) throws IOException {
        myOut.writeLong(Protocol.MAGIC);
        myOut.writeInt(type);
        return this;
    }

    Wire i(int value) throws IOException {
        myOut.writeInt(value);
        return this;
    }

    Wire l(long value) throws IOException {
        myOut.writeLong(value);
        return this;
    }

    Wire b(int value) throws IOException {
        myOut.writeByte(value);
        return this;
    }

    Wire s(String text) throws IOException {
        if (text == null) {
            myOut.writeInt(-1);
        } else {
            byte[] bytes = text.getBytes(StandardCharsets.UTF_8);
            myOut.writeInt(bytes.length);
            myOut.write(bytes);
        }
        return this;
    }

    byte[] bytes() {
        return myBytes.toByteArray();
    }

    /** Sends the bytes on a new connection, ends the sending side, and reads the answer to its end. */
    Reply send(int port) throws IOException {
        try (Socket socket = new Socket("127.0.0.1", port)) {
            socket.setSoTimeout(60_000);
            socket.getOutputStream().write(bytes());
            socket.shutdownOutput();
            return new Reply(socket.getInputStream().readAllBytes());
        }
    }

    /** An answer, read from its first byte. */
    static final class Reply {
        final byte[] myBytes;
        private final DataInputStream myIn;

        Reply(byte[] bytes) {
            myBytes = bytes;
            myIn = new DataInputStream(new ByteArrayInputStream(bytes));
        }

        int header() throws IOException {
            assertEquals(Protocol.MAGIC, myIn.readLong(), "magic");
            return myIn.readInt();
        }

        /** The standard success answer of this session. */
        Reply ok(long sessionId) throws IOException {
            assertEquals(Protocol.PACKET_OK_RESP, header(), "an OK answer");
            assertEquals(sessionId, myIn.readLong(), "session id");
            return this;
        }

        /** An error answer; the result is its message. */
        String error() throws IOException {
            assertEquals(Protocol.PACKET_ERROR_RESP, header(), "an error answer");
            return string();
        }

        /** An error answer and nothing after it; the result is its message. */
        String refusal() throws IOException {
            String message = error();
            end();
            return message;
        }

        /** Either the standard answer, or an error: the message, or null for OK. */
        String okOrError(long sessionId) throws IOException {
            assertEquals(Protocol.MAGIC, myIn.readLong(), "magic");
            int type = myIn.readInt();
            if (type == Protocol.PACKET_ERROR_RESP) {
                return string();
            }
            assertEquals(Protocol.PACKET_OK_RESP, type);
            assertEquals(sessionId, myIn.readLong(), "session id");
            return null;
        }

        int i() throws IOException {
            return myIn.readInt();
        }

        long l() throws IOException {
            return myIn.readLong();
        }

        String string() throws IOException {
            int length = myIn.readInt();
            if (length == -1) {
                return null;
            }
            byte[] bytes = new byte[length];
            myIn.readFully(bytes);
            return new String(bytes, StandardCharsets.UTF_8);
        }

        byte[] raw(int count) throws IOException {
            byte[] bytes = new byte[count];
            myIn.readFully(bytes);
            return bytes;
        }

        int left() throws IOException {
            return myIn.available();
        }

        /** Nothing may follow. */
        void end() throws IOException {
            assertEquals(0, myIn.available(), "bytes after the answer");
        }
    }
}
