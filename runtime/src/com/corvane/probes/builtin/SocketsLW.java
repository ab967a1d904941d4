package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * The sockets a program connects and accepts, light: a row of the table
 * "Sockets" from the connection of each socket or socket channel to its
 * closing, with the peer's address; a connection that fails is a row with
 * the error. Reads and writes are left alone; the probe Sockets counts them.
 */
public final class SocketsLW {
    private SocketsLW() {
    }

    @MethodPattern({"sun.nio.ch.NioSocketImpl:connect(java.net.SocketAddress, int)",
            "sun.nio.ch.SocketChannelImpl:connect(java.net.SocketAddress) boolean"})
    public static final class Connect {
        private Connect() {
        }

        public static void onReturn(@This Object socket, @Param(1) Object address) {
            SocketStreams.SOCKETS.open(socket, address, "connect", false);
        }

        public static void onUncaughtException(@Param(1) Object address, @ThrownException Throwable thrown) {
            SocketStreams.SOCKETS.failed(address, "connect", thrown);
        }
    }

    @MethodPattern("sun.nio.ch.NioSocketImpl:accept(java.net.SocketImpl)")
    public static final class Accept {
        private Accept() {
        }

        public static void onReturn(@Param(1) Object socket) {
            SocketStreams.SOCKETS.open(socket, socket, "accept", false);
        }
    }

    @MethodPattern("sun.nio.ch.ServerSocketChannelImpl:accept() java.nio.channels.SocketChannel")
    public static final class AcceptChannel {
        private AcceptChannel() {
        }

        public static void onReturn(@ReturnValue Object channel) {
            SocketStreams.accepted(channel, false);
        }
    }

    @MethodPattern({"sun.nio.ch.NioSocketImpl:close()", "sun.nio.ch.SocketChannelImpl:implCloseSelectableChannel()"})
    public static final class Close {
        private Close() {
        }

        public static void onReturn(@This Object socket) {
            SocketStreams.SOCKETS.close(socket);
        }
    }
}
