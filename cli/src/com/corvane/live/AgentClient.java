package com.corvane.live;

import com.corvane.runtime.Packet;
import com.corvane.runtime.Protocol;
import com.corvane.snapshot.SnapshotFormatException;
import com.corvane.snapshot.TableStreamReader;
import com.corvane.snapshot.Tables;
import java.io.BufferedInputStream;
import java.io.BufferedOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.EOFException;
import java.io.IOException;
import java.io.OutputStream;
import java.net.InetSocketAddress;
import java.net.ProtocolException;
import java.net.Socket;
import java.net.SocketTimeoutException;

/**
 * A client of one agent's control port: each request on a connection of its
 * own, answered or refused. Refusals and failures come as {@link AgentException}
 * with a one-line message.
 */
public final class AgentClient {
    private static final int CONNECT_TIMEOUT_MS = 3000;
    private static final int ANSWER_TIMEOUT_MS = 60_000;
    /** A capture stops the JVM while it writes; give it time. */
    private static final int CAPTURE_TIMEOUT_MS = 30 * 60_000;

    /** Writes a request's payload. */
    public interface Payload {
        void write(DataOutputStream out) throws IOException;
    }

    /** Reads what follows the success header. */
    public interface Answer<T> {
        T read(DataInputStream in) throws IOException;
    }

    /** Told how far a snapshot capture has come, in percent. */
    public interface CaptureProgress {
        void percent(int percent);
    }

    /** Told how many bytes of a transfer have arrived. */
    public interface TransferProgress {
        void transferred(long done, long total);
    }

    public record AgentInfo(int protocolVersion, String product, long capabilities, String sessionName,
            String snapshotNameFormat, long sessionId, String reserved, String snapshotDirectory, int pid,
            int telemetryLimit) {
    }

    private static final Payload NONE = out -> {
    };

    private final String myHost;
    private final int myPort;

    public AgentClient(String host, int port) {
        myHost = host;
        myPort = port;
    }

    public AgentClient(int port) {
        this("127.0.0.1", port);
    }

    public int port() {
        return myPort;
    }

    /** A request with the standard success answer; {@code answer} reads what follows it. */
    public <T> T request(int type, Payload payload, Answer<T> answer) throws IOException {
        return exchange(type, payload, answer, true, ANSWER_TIMEOUT_MS, null);
    }

    /** A request whose success answer is the standard one with nothing behind it. */
    public void request(int type, Payload payload) throws IOException {
        request(type, payload, in -> null);
    }

    private <T> T exchange(int type, Payload payload, Answer<T> answer, boolean withSessionId, int timeoutMs,
            CaptureProgress progress) throws IOException {
        try (Socket socket = new Socket()) {
            try {
                socket.connect(new InetSocketAddress(myHost, myPort), CONNECT_TIMEOUT_MS);
            } catch (IOException e) {
                throw AgentException.failed("cannot connect to the agent on port " + myPort + ": " + reason(e), e);
            }
            socket.setSoTimeout(timeoutMs);
            socket.setTcpNoDelay(true);
            try {
                DataOutputStream out = new DataOutputStream(new BufferedOutputStream(socket.getOutputStream()));
                Packet.writeHeader(out, type);
                payload.write(out);
                out.flush();
                DataInputStream in = new DataInputStream(new BufferedInputStream(socket.getInputStream(), 1 << 16));
                readSuccessHeader(in, progress);
                if (withSessionId) {
                    in.readLong();
                }
                return answer.read(in);
            } catch (AgentException e) {
                throw e;
            } catch (SocketTimeoutException e) {
                throw AgentException.failed("the agent on port " + myPort + " did not answer in time", e);
            } catch (EOFException e) {
                throw AgentException.failed("the agent on port " + myPort + " closed the connection", e);
            } catch (ProtocolException e) {
                throw AgentException.failed("the agent on port " + myPort + " answered wrongly: " + e.getMessage(), e);
            } catch (IOException e) {
                throw AgentException.failed("the connection to the agent on port " + myPort + " failed: " + reason(e),
                        e);
            }
        }
    }

    private static String reason(IOException e) {
        return e.getMessage() == null || e.getMessage().isBlank() ? e.getClass().getSimpleName() : e.getMessage();
    }

    /** Skips progress messages; an error answer becomes a refusal. */
    private static void readSuccessHeader(DataInputStream in, CaptureProgress progress) throws IOException {
        for (;;) {
            int type = Packet.readHeader(in);
            if (type == Protocol.PACKET_PROGRESS) {
                int percent = in.readInt();
                if (progress != null) {
                    progress.percent(percent);
                }
                continue;
            }
            if (type == Protocol.PACKET_ERROR_RESP) {
                throw AgentException.refused(Protocol.presentError(Packet.readString(in)));
            }
            if (type != Protocol.PACKET_OK_RESP) {
                throw new ProtocolException("Wrong packet type: " + type + ", expected " + Protocol.PACKET_OK_RESP);
            }
            return;
        }
    }

    public long status() throws IOException {
        return request(Protocol.PACKET_GET_STATUS_REQ, NONE, DataInputStream::readLong);
    }

    public AgentInfo info() throws IOException {
        return exchange(Protocol.PACKET_GET_AGENT_INFO_REQ, NONE, in -> new AgentInfo(in.readInt(),
                Packet.readString(in), in.readLong(), Packet.readString(in), Packet.readString(in), in.readLong(),
                Packet.readString(in), Packet.readString(in), in.readInt(), in.readInt()), false, ANSWER_TIMEOUT_MS,
                null);
    }

    public void startCpuProfiling(long mode, String settings) throws IOException {
        request(Protocol.PACKET_START_CPU_PROFILING_REQ, out -> {
            out.writeLong(mode);
            Packet.writeString(out, settings);
        });
    }

    public void startAllocationRecording(int recordEach, int sizeLimit, long mode) throws IOException {
        request(Protocol.PACKET_START_ALLOCATION_RECORDING_REQ, out -> {
            out.writeInt(recordEach);
            out.writeInt(sizeLimit);
            out.writeLong(mode);
        });
    }

    /** A request without payload whose answer is the standard one. */
    public void simple(int type) throws IOException {
        request(type, NONE);
    }

    public String threadDump() throws IOException {
        return request(Protocol.PACKET_GET_JVM_THREAD_DUMP_REQ, NONE, Packet::readString);
    }

    /** Captures a snapshot in the agent's snapshot folder; the result is its path on the agent's machine. */
    public String captureSnapshot(long flags, CaptureProgress progress) throws IOException {
        return exchange(Protocol.PACKET_CAPTURE_SNAPSHOT_REQ, out -> {
            out.writeLong(flags);
            Packet.writeString(out, "");
            Packet.writeString(out, "");
        }, Packet::readString, true, CAPTURE_TIMEOUT_MS, progress);
    }

    /** Copies a snapshot file of the agent's machine to {@code target}, as it is; the result is its length. */
    public long transferSnapshot(String path, OutputStream target, TransferProgress progress) throws IOException {
        return request(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ, out -> Packet.writeString(out, path), in -> {
            long length = in.readLong();
            byte[] block = new byte[Protocol.TRANSFER_CHUNK_SIZE];
            long done = 0;
            while (done < length) {
                int n = in.read(block, 0, (int) Math.min(block.length, length - done));
                if (n < 0) {
                    throw new EOFException();
                }
                target.write(block, 0, n);
                done += n;
                progress.transferred(done, length);
            }
            return length;
        });
    }

    /**
     * The rows of the tables in {@code mask} newer than their stamps ({@code stamps[slot]}), read into
     * {@code tables}.
     */
    public void updateTables(int mask, int[] stamps, Tables tables) throws IOException {
        request(Protocol.PACKET_UPDATE_DATABASE_TABLES, out -> {
            out.writeInt(mask);
            for (int bit = 0; bit < 32; bit++) {
                if ((mask & (1 << bit)) != 0) {
                    out.writeInt(stamps[bit]);
                }
            }
        }, in -> {
            try {
                TableStreamReader.read(in, mask, tables);
            } catch (SnapshotFormatException e) {
                throw new ProtocolException("broken table stream: " + e.getMessage());
            }
            return null;
        });
    }
}
