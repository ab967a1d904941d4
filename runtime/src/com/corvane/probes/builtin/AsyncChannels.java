package com.corvane.probes.builtin;

import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;
import com.corvane.probes.Table;

/**
 * Operations started on asynchronous file and socket channels: a row of
 * "Async Channels" for each read, write, connect and accept, with the
 * channel and the operation. The row lasts as long as the start of the
 * operation; its completion comes later, on another thread.
 */
@MethodPattern({"sun.nio.ch.*Asynchronous*ChannelImpl:implRead(*)", "sun.nio.ch.*Asynchronous*ChannelImpl:implWrite(*)",
        "sun.nio.ch.*Asynchronous*ChannelImpl:implConnect(*)", "sun.nio.ch.*Asynchronous*ChannelImpl:implAccept(*)"})
public final class AsyncChannels {
    static final Calls OPERATIONS = new Calls("Async Channels", "Channel");
    static final Table.StringColumn OPERATION = OPERATIONS.myTable.stringColumn("Operation");

    private AsyncChannels() {
    }

    public static int onEnter(@This Object channel, @MethodName String method) {
        int row = OPERATIONS.enter(channel);
        try {
            OPERATION.set(row, method.substring("impl".length()).toLowerCase());
        } catch (Throwable e) {
            // the program's operation stands
        }
        return row;
    }

    public static void onExit(@OnEnterResult int row, @ThrownException Throwable thrown) {
        OPERATIONS.exit(row, thrown);
    }
}
