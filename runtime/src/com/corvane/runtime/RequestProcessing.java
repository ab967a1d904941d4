package com.corvane.runtime;

import com.corvane.http.HttpServer;
import java.io.BufferedInputStream;
import java.io.Closeable;
import java.io.BufferedOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.EOFException;
import java.io.IOException;
import java.io.InputStream;
import java.net.ProtocolException;
import java.net.ServerSocket;
import java.net.Socket;
import java.net.SocketException;
import java.net.SocketTimeoutException;
import java.util.Collections;
import java.util.HashSet;
import java.util.Set;
import java.util.concurrent.RejectedExecutionException;
import java.util.concurrent.SynchronousQueue;
import java.util.concurrent.ThreadFactory;
import java.util.concurrent.ThreadPoolExecutor;
import java.util.concurrent.TimeUnit;

/**
 * The control port's server side. Listener threads accept connections and
 * hand each to a worker, which reads the requests, decides between the
 * packet protocol and HTTP, and answers. Requests still run one at a time,
 * under one shared lock; but a request is read whole before the lock is
 * taken and its answer is sent after the lock is left, so a client that is
 * silent or slow holds only its own worker, never the others' requests.
 */
final class RequestProcessing {
    private static final int DEFAULT_SOCKET_TIMEOUT_MS = 30000;
    /** Connections served at the same time; one more is closed at once. */
    private static final int WORKERS = 64;
    private static final int IDLE_WORKER_SECONDS = 30;
    private static final int BUFFER_SIZE = 1 << 16;
    private static final int RETRY_ACCEPT_MS = 100;
    /** The most a request may carry. */
    private static final long MAX_REQUEST_BYTES = 2L * Packet.MAX_BLOCK_SIZE;

    /** The lock under which requests run, shared by every listener and worker. */
    static final Object ourRequestLock = new Object();
    private static ThreadPoolExecutor ourWorkers;
    /**
     * The listening sockets and the connections being served. At the JVM's
     * exit they are closed, so that no agent thread waits in a socket call:
     * the JVM gives threads in native code time to stop before it ends.
     */
    private static final Set<Closeable> ourOpenSockets = Collections.synchronizedSet(new HashSet<Closeable>());
    private static volatile boolean ourSocketsClosed;

    private RequestProcessing() {
    }

    static synchronized void startRequestThreads(ServerSocket[] sockets) {
        int timeout = Callback.dispatchInt("_socket_timeout_ms");
        final int socketTimeout = timeout < 0 ? DEFAULT_SOCKET_TIMEOUT_MS : timeout;
        Callback.messageToLogFile("socket timeout: " + socketTimeout);
        if (ourWorkers == null) {
            // Idle workers are reused and end after a while; there is never a queue in front of them.
            ourWorkers = new ThreadPoolExecutor(0, WORKERS, IDLE_WORKER_SECONDS, TimeUnit.SECONDS,
                    new SynchronousQueue<Runnable>(), new ThreadFactory() {
                        @Override
                        public Thread newThread(Runnable work) {
                            Thread thread = new Thread(work, SharedConstants.REQUEST_WORKER_THREAD_NAME);
                            thread.setDaemon(true);
                            return thread;
                        }
                    });
        }
        for (final ServerSocket server : sockets) {
            ourOpenSockets.add(server);
            Thread listener = new Thread(SharedConstants.REQUEST_LISTENER_THREAD_NAME) {
                @Override
                public void run() {
                    Callback.excludeThreadFromAsyncSampling();
                    acceptLoop(server, socketTimeout);
                }
            };
            listener.setDaemon(true);
            listener.setPriority(Thread.MIN_PRIORITY);
            listener.start();
        }
    }

    private static void acceptLoop(ServerSocket server, int socketTimeout) {
        while (!server.isClosed()) {
            final Socket socket;
            try {
                socket = server.accept();
            } catch (IOException e) {
                if (server.isClosed()) {
                    return;
                }
                Callback.messageToLogFile("error: accept() failed: " + e);
                sleep(RETRY_ACCEPT_MS);
                continue;
            }
            try {
                socket.setSoTimeout(socketTimeout);
                socket.setTcpNoDelay(true);
                ourWorkers.execute(new Runnable() {
                    @Override
                    public void run() {
                        Callback.excludeThreadFromAsyncSampling();
                        serve(socket);
                    }
                });
            } catch (RejectedExecutionException | IOException e) {
                Callback.messageToLogFile("warning: connection refused: " + e);
                closeQuietly(socket);
            }
        }
    }

    /** Closes the listening sockets and every connection; nothing is accepted afterwards. */
    static void closeAllSockets() {
        ourSocketsClosed = true;
        Closeable[] open;
        synchronized (ourOpenSockets) {
            open = ourOpenSockets.toArray(new Closeable[0]);
        }
        for (Closeable socket : open) {
            try {
                socket.close();
            } catch (IOException e) {
                // closing at exit: nothing to be done
            }
        }
    }

    /** One connection: HTTP when it does not open with the packet magic, otherwise the packet loop. */
    private static void serve(Socket socket) {
        ourOpenSockets.add(socket);
        try {
            if (ourSocketsClosed) {
                return;
            }
            BufferedInputStream in = new BufferedInputStream(socket.getInputStream(), BUFFER_SIZE);
            in.mark(8);
            byte[] first = new byte[8];
            int count = readUpTo(in, first);
            in.reset();
            if (count == 0) {
                return;
            }
            if (!startsWithMagic(first, count) && !Callback.dispatchBoolean("_no_http")) {
                HttpServer.serve(socket, in);
            } else {
                dispatchRequests(socket, new LimitedInput(in));
            }
        } catch (EOFException e) {
            Callback.messageToLogFile("connection closed inside a request");
        } catch (SocketTimeoutException e) {
            Callback.messageToLogFile("connection dropped: silent for the socket time-out");
        } catch (SocketException e) {
            Callback.messageToLogFile("connection lost: " + e.getMessage());
        } catch (Throwable e) {
            Callback.messageToLogFile("error: exception in dispatchRequest()\n" + stackOf(e));
        } finally {
            ourOpenSockets.remove(socket);
            try {
                socket.close();
            } catch (IOException e) {
                Callback.messageToLogFile("error: close() input stream failed");
            }
        }
    }

    private static boolean startsWithMagic(byte[] bytes, int count) {
        if (count < 8) {
            return false;
        }
        long value = 0;
        for (int i = 0; i < 8; i++) {
            value = (value << 8) | (bytes[i] & 0xFF);
        }
        return value == Protocol.MAGIC;
    }

    /**
     * Requests until the connection's loop ends: one request, or a sequence. After a sequence's end one more
     * request is served. A peer that closes between requests ends the loop quietly.
     */
    private static void dispatchRequests(Socket socket, LimitedInput limited) throws IOException {
        DataInputStream in = new DataInputStream(limited);
        DataOutputStream out = new DataOutputStream(new BufferedOutputStream(socket.getOutputStream(), BUFFER_SIZE));
        boolean sequence = false;
        for (;;) {
            int type;
            limited.startRequest();
            try {
                if (!hasMoreInput(in)) {
                    return;
                }
                type = Packet.readHeader(in);
            } catch (ProtocolException e) {
                refuse(out, e);
                return;
            }
            if (type == Protocol.PACKET_PACKET_SEQUENCE_START) {
                sequence = true;
                continue;
            }
            if (type == Protocol.PACKET_PACKET_SEQUENCE_END) {
                sequence = false;
                continue;
            }
            Request request = new Request(type, socket, in, out);
            try {
                Requests.dispatch(request);
            } catch (ProtocolException e) {
                refuse(out, e);
                return;
            }
            out.flush();
            if (!sequence) {
                return;
            }
        }
    }

    /** A request that broke the rules: its error answer, and the connection ends. */
    private static void refuse(DataOutputStream out, ProtocolException e) throws IOException {
        Callback.messageToLogFile("error: bad request: " + e.getMessage());
        Request.writeError(out, e.getMessage());
    }

    private static boolean hasMoreInput(InputStream in) throws IOException {
        in.mark(1);
        int next = in.read();
        in.reset();
        return next >= 0;
    }

    private static int readUpTo(InputStream in, byte[] bytes) throws IOException {
        int count = 0;
        while (count < bytes.length) {
            int n = in.read(bytes, count, bytes.length - count);
            if (n < 0) {
                break;
            }
            count += n;
        }
        return count;
    }

    /** The connection's input, counted from the start of each request, refused past the limit. */
    private static final class LimitedInput extends java.io.FilterInputStream {
        private long myCount;

        LimitedInput(InputStream in) {
            super(in);
        }

        void startRequest() {
            myCount = 0;
        }

        private void count(long n) throws ProtocolException {
            myCount += Math.max(n, 0);
            if (myCount > MAX_REQUEST_BYTES) {
                throw new ProtocolException("Request too long: more than " + MAX_REQUEST_BYTES + " bytes");
            }
        }

        @Override
        public int read() throws IOException {
            int b = super.read();
            count(b < 0 ? 0 : 1);
            return b;
        }

        @Override
        public int read(byte[] bytes, int offset, int length) throws IOException {
            int n = super.read(bytes, offset, length);
            count(n);
            return n;
        }

        @Override
        public long skip(long n) throws IOException {
            long skipped = super.skip(n);
            count(skipped);
            return skipped;
        }
    }

    static String stackOf(Throwable e) {
        java.io.StringWriter text = new java.io.StringWriter();
        e.printStackTrace(new java.io.PrintWriter(text));
        return text.toString();
    }

    static void closeQuietly(Socket socket) {
        try {
            socket.close();
        } catch (IOException e) {
            // it is going anyway
        }
    }

    private static void sleep(int ms) {
        try {
            Thread.sleep(ms);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }
}
