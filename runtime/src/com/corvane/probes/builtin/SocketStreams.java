package com.corvane.probes.builtin;

/** The table "Sockets" of the probes Sockets and SocketsLW. */
final class SocketStreams {
    static final StreamRows SOCKETS = new StreamRows("Sockets", "Address");

    private SocketStreams() {
    }

    /** A channel accepted: its row names the peer. */
    static void accepted(Object channel, boolean counted) {
        if (channel != null) {
            SOCKETS.open(channel, ProbeSupport.call(channel, "getRemoteAddress"), "accept", counted);
        }
    }
}
