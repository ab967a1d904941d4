package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.MethodName;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * The sockets a program connects and accepts, with their traffic: as
 * SocketsLW, and each row also holds the bytes read and written, the number
 * of reads and writes and the time they took.
 */
public final class Sockets {
    private Sockets() {
    }

    @MethodPattern({"sun.nio.ch.NioSocketImpl:connect(java.net.SocketAddress, int)",
            "sun.nio.ch.SocketChannelImpl:connect(java.net.SocketAddress) boolean"})
    public static final class Connect {
        private Connect() {
        }

        public static void onReturn(@This Object socket, @Param(1) Object address) {
            SocketStreams.SOCKETS.open(socket, address, "connect", true);
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
            SocketStreams.SOCKETS.open(socket, socket, "accept", true);
        }
    }

    @MethodPattern("sun.nio.ch.ServerSocketChannelImpl:accept() java.nio.channels.SocketChannel")
    public static final class AcceptChannel {
        private AcceptChannel() {
        }

        public static void onReturn(@ReturnValue Object channel) {
            SocketStreams.accepted(channel, true);
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

    /** Reads and writes that answer the number of bytes, -1 at the end. */
    @MethodPattern({"sun.nio.ch.NioSocketImpl:read(byte[], int, int) int",
            "sun.nio.ch.SocketChannelImpl:read(java.nio.ByteBuffer) int",
            "sun.nio.ch.SocketChannelImpl:write(java.nio.ByteBuffer) int"})
    public static final class Counted {
        private Counted() {
        }

        public static long onEnter() {
            return System.nanoTime();
        }

        public static void onExit(@This Object socket, @OnEnterResult long startNs, @MethodName String method,
                @ReturnValue int bytes) {
            if (method.startsWith("read")) {
                SocketStreams.SOCKETS.read(socket, bytes, startNs);
            } else {
                SocketStreams.SOCKETS.written(socket, bytes, startNs);
            }
        }
    }

    @MethodPattern("sun.nio.ch.NioSocketImpl:write(byte[], int, int)")
    public static final class RangeWrite {
        private RangeWrite() {
        }

        public static long onEnter() {
            return System.nanoTime();
        }

        public static void onExit(@This Object socket, @OnEnterResult long startNs, @Param(3) int length) {
            SocketStreams.SOCKETS.written(socket, length, startNs);
        }
    }
}
