import com.corvane.live.AgentClient;
import com.corvane.runtime.Packet;
import com.corvane.runtime.Protocol;
import com.corvane.snapshot.Table;
import com.corvane.snapshot.Tables;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.InputStream;
import java.io.OutputStream;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;

/**
 * The control port's speed. "copy <file> <port-file>" is the comparison's
 * server: it sends the file to each connection in 64 KiB blocks, as the agent
 * does. "measure <agent-port> <copy-port> <file> <runs>" fetches the file
 * from the agent (PACKET_TRANSFER_SNAPSHOT_REQ) and from the plain server in
 * turns, reading every byte on both sides, and then times table deltas of
 * all tables against the idle agent.
 */
public class ControlBench {
    static final int BLOCK = 65536;
    static final int DELTAS = 300;
    static final int ALL_TABLES = (1 << 20) - 1;

    public static void main(String[] args) throws Exception {
        if (args[0].equals("copy")) {
            copyServer(Path.of(args[1]), Path.of(args[2]));
        } else {
            measure(Integer.parseInt(args[1]), Integer.parseInt(args[2]), args[3], Integer.parseInt(args[4]));
        }
    }

    static void copyServer(Path file, Path portFile) throws Exception {
        try (ServerSocket server = new ServerSocket(0, 50, java.net.InetAddress.getLoopbackAddress())) {
            Files.writeString(portFile, String.valueOf(server.getLocalPort()));
            for (;;) {
                try (Socket socket = server.accept(); InputStream in = Files.newInputStream(file)) {
                    socket.setTcpNoDelay(true);
                    OutputStream out = socket.getOutputStream();
                    byte[] block = new byte[BLOCK];
                    for (int n; (n = in.read(block)) > 0; ) {
                        out.write(block, 0, n);
                    }
                }
            }
        }
    }

    /** Bytes received of a transfer from the agent, header and length included. */
    static long fromAgent(int port, String path) throws Exception {
        try (Socket socket = new Socket("127.0.0.1", port)) {
            DataOutputStream out = new DataOutputStream(socket.getOutputStream());
            Packet.writeHeader(out, Protocol.PACKET_TRANSFER_SNAPSHOT_REQ);
            Packet.writeString(out, path);
            out.flush();
            // Unbuffered, as on the other side: the body is read straight from the socket.
            InputStream raw = socket.getInputStream();
            DataInputStream in = new DataInputStream(raw);
            Packet.readHeader(in, Protocol.PACKET_OK_RESP);
            in.readLong();
            long length = in.readLong();
            return drain(raw, length);
        }
    }

    static long fromCopy(int port, long length) throws Exception {
        try (Socket socket = new Socket("127.0.0.1", port)) {
            return drain(socket.getInputStream(), length);
        }
    }

    static long drain(InputStream in, long length) throws Exception {
        byte[] block = new byte[BLOCK];
        long done = 0;
        while (done < length) {
            int n = in.read(block, 0, (int) Math.min(block.length, length - done));
            if (n < 0) {
                throw new IllegalStateException("cut after " + done + " of " + length + " bytes");
            }
            done += n;
        }
        return done;
    }

    static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        return sorted[sorted.length / 2];
    }

    static void measure(int agentPort, int copyPort, String path, int runs) throws Exception {
        long length = Files.size(Path.of(path));
        double mb = length / 1e6;
        fromAgent(agentPort, path);
        fromCopy(copyPort, length);
        double[] agent = new double[runs];
        double[] copy = new double[runs];
        for (int i = 0; i < runs; i++) {
            // Alternate which side goes first.
            for (int side = 0; side < 2; side++) {
                boolean agentTurn = (i + side) % 2 == 0;
                long start = System.nanoTime();
                long got = agentTurn ? fromAgent(agentPort, path) : fromCopy(copyPort, length);
                double seconds = (System.nanoTime() - start) / 1e9;
                if (got != length) {
                    throw new IllegalStateException("got " + got + " of " + length + " bytes");
                }
                (agentTurn ? agent : copy)[i] = mb / seconds;
            }
        }
        double ours = median(agent);
        double theirs = median(copy);
        System.out.printf("BENCH control_snapshot_transfer_%dmb %.0f MB/s vs loopback_copy %.0f MB/s ratio %.2f%n",
                Math.round(mb), ours, theirs, ours / theirs);

        // Deltas as a viewer asks for them: all tables, newer than what it has.
        AgentClient client = new AgentClient(agentPort);
        Tables tables = new Tables();
        int[] stamps = new int[32];
        double[] deltaMs = new double[DELTAS];
        for (int i = 0; i < DELTAS; i++) {
            long start = System.nanoTime();
            client.updateTables(ALL_TABLES, stamps, tables);
            deltaMs[i] = (System.nanoTime() - start) / 1e6;
            for (int slot = 0; slot < Tables.COUNT; slot++) {
                for (Table.Entry<?> entry : tables.bySlot(slot).entries()) {
                    stamps[slot] = Math.max(stamps[slot], Math.abs(entry.stamp()));
                }
            }
        }
        System.out.printf("BENCH control_table_delta_idle %.2f ms%n", median(Arrays.copyOfRange(deltaMs, 10, DELTAS)));
    }
}
