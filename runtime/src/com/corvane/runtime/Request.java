package com.corvane.runtime;

import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.net.ProtocolException;
import java.net.Socket;

/**
 * One request of a connection: its payload, read by the handler before
 * anything runs, and the ways its answer is made.
 */
final class Request {
    /** Writes (part of) an answer. */
    interface Answer {
        void write(DataOutputStream out) throws IOException;
    }

    final int myType;
    private final Socket mySocket;
    private final DataInputStream myIn;
    private final DataOutputStream myOut;

    Request(int type, Socket socket, DataInputStream in, DataOutputStream out) {
        myType = type;
        mySocket = socket;
        myIn = in;
        myOut = out;
    }

    int readInt() throws IOException {
        return myIn.readInt();
    }

    long readLong() throws IOException {
        return myIn.readLong();
    }

    boolean readBoolean() throws IOException {
        return myIn.readByte() != 0;
    }

    String readString() throws IOException {
        return Packet.readString(myIn);
    }

    /** A count of items that each take memory here: at most {@code max}. */
    int readCount(int max) throws IOException {
        int count = Packet.readCount(myIn);
        if (count > max) {
            throw new ProtocolException("Count too large: " + count);
        }
        return count;
    }

    byte[] readBytes() throws IOException {
        return Packet.readBytes(myIn);
    }

    /**
     * Runs {@code answer} under the shared request lock, into memory; the answer goes out after the lock is
     * left. A native that this agent does not have yet gives the error answer that {@code feature} is not
     * available.
     */
    void locked(String feature, Answer answer) throws IOException {
        ByteArrayOutputStream buffer = new ByteArrayOutputStream();
        synchronized (RequestProcessing.ourRequestLock) {
            try {
                answer.write(new DataOutputStream(buffer));
            } catch (UnsatisfiedLinkError e) {
                buffer.reset();
                writeError(new DataOutputStream(buffer), feature + " is not available in this agent");
            }
        }
        buffer.writeTo(myOut);
    }

    /** Runs {@code answer} without the lock, straight onto the connection: for long streams. */
    void streamed(Answer answer) throws IOException {
        answer.write(myOut);
    }

    /** The connection's system descriptor, for natives that write to it; -1 if unknown. */
    int socketDescriptor() {
        return SocketDescriptors.descriptorOf(mySocket);
    }

    /** The standard success answer: the header with the session id. */
    static void writeOk(DataOutputStream out) throws IOException {
        Packet.writeHeader(out, Protocol.PACKET_OK_RESP);
        out.writeLong(Core.ourSessionId);
    }

    static void writeError(DataOutputStream out, String message) throws IOException {
        Packet.writeHeader(out, Protocol.PACKET_ERROR_RESP);
        Packet.writeString(out, message);
        out.flush();
    }

    /** The standard answer for a null result, else the error answer with it. */
    static void writeOkOrError(DataOutputStream out, String refusal) throws IOException {
        if (refusal == null) {
            writeOk(out);
        } else {
            writeError(out, refusal);
        }
    }
}
