package com.corvane.probes.builtin;

import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;
import java.io.File;

/**
 * The files a program opens, with their reads and writes: as FilesLW, and
 * each row also holds the bytes read and written, the number of reads and
 * writes and the time they took.
 */
public final class Files {
    private Files() {
    }

    @MethodPattern("java.io.FileInputStream:<init>(java.io.File)")
    public static final class Input {
        private Input() {
        }

        public static void onReturn(@This Object stream, @Param(1) File file) {
            FileStreams.opened(stream, file, "read", true);
        }

        public static void onUncaughtException(@Param(1) File file, @ThrownException Throwable thrown) {
            FileStreams.FILES.failed(file, "read", thrown);
        }
    }

    @MethodPattern("java.io.FileOutputStream:<init>(java.io.File, boolean)")
    public static final class Output {
        private Output() {
        }

        public static void onReturn(@This Object stream, @Param(1) File file, @Param(2) boolean append) {
            FileStreams.opened(stream, file, append ? "append" : "write", true);
        }

        public static void onUncaughtException(@Param(1) File file, @ThrownException Throwable thrown) {
            FileStreams.FILES.failed(file, "write", thrown);
        }
    }

    @MethodPattern("java.io.RandomAccessFile:<init>(java.io.File, java.lang.String)")
    public static final class RandomAccess {
        private RandomAccess() {
        }

        public static void onReturn(@This Object file, @Param(1) File name, @Param(2) String mode) {
            FileStreams.opened(file, name, FileStreams.randomAccess(mode), true);
        }

        public static void onUncaughtException(@Param(1) File name, @Param(2) String mode,
                @ThrownException Throwable thrown) {
            FileStreams.FILES.failed(name, FileStreams.randomAccess(mode), thrown);
        }
    }

    @MethodPattern("sun.nio.ch.FileChannelImpl:open(java.io.FileDescriptor, java.lang.String, *) java.nio.channels.FileChannel")
    public static final class Channel {
        private Channel() {
        }

        public static void onReturn(@ReturnValue Object channel, @Param(2) String path, @Param(3) boolean readable,
                @Param(4) boolean writable, @Param(6) Object parent) {
            FileStreams.channelOpened(channel, path, readable, writable, parent, true);
        }
    }

    @MethodPattern({"java.io.FileInputStream:close()", "java.io.FileOutputStream:close()",
            "java.io.RandomAccessFile:close()", "sun.nio.ch.FileChannelImpl:implCloseChannel()"})
    public static final class Close {
        private Close() {
        }

        public static void onReturn(@This Object stream) {
            FileStreams.FILES.close(stream);
        }
    }

    /** Reads and writes that answer the number of bytes, -1 at the end. */
    @MethodPattern({"java.io.FileInputStream:read(byte[]*) int", "java.io.RandomAccessFile:read(byte[]*) int",
            "sun.nio.ch.FileChannelImpl:read(java.nio.ByteBuffer*) int",
            "sun.nio.ch.FileChannelImpl:write(java.nio.ByteBuffer*) int"})
    public static final class Counted {
        private Counted() {
        }

        public static long onEnter() {
            return System.nanoTime();
        }

        public static void onExit(@This Object stream, @OnEnterResult long startNs, @MethodName String method,
                @ReturnValue int bytes) {
            if (method.startsWith("read")) {
                FileStreams.FILES.read(stream, bytes, startNs);
            } else {
                FileStreams.FILES.written(stream, bytes, startNs);
            }
        }
    }

    /** Reads of one byte, which answer the byte or -1. */
    @MethodPattern({"java.io.FileInputStream:read() int", "java.io.RandomAccessFile:read() int"})
    public static final class SingleRead {
        private SingleRead() {
        }

        public static long onEnter() {
            return System.nanoTime();
        }

        public static void onExit(@This Object stream, @OnEnterResult long startNs, @ReturnValue int value) {
            FileStreams.FILES.read(stream, value < 0 ? 0 : 1, startNs);
        }
    }

    @MethodPattern({"java.io.FileOutputStream:write(int)", "java.io.RandomAccessFile:write(int)"})
    public static final class SingleWrite {
        private SingleWrite() {
        }

        public static long onEnter() {
            return System.nanoTime();
        }

        public static void onExit(@This Object stream, @OnEnterResult long startNs) {
            FileStreams.FILES.written(stream, 1, startNs);
        }
    }

    @MethodPattern({"java.io.FileOutputStream:write(byte[])", "java.io.RandomAccessFile:write(byte[])"})
    public static final class ArrayWrite {
        private ArrayWrite() {
        }

        public static long onEnter() {
            return System.nanoTime();
        }

        public static void onExit(@This Object stream, @OnEnterResult long startNs, @Param(1) byte[] bytes) {
            FileStreams.FILES.written(stream, bytes == null ? 0 : bytes.length, startNs);
        }
    }

    @MethodPattern({"java.io.FileOutputStream:write(byte[], int, int)",
            "java.io.RandomAccessFile:write(byte[], int, int)"})
    public static final class RangeWrite {
        private RangeWrite() {
        }

        public static long onEnter() {
            return System.nanoTime();
        }

        public static void onExit(@This Object stream, @OnEnterResult long startNs, @Param(3) int length) {
            FileStreams.FILES.written(stream, length, startNs);
        }
    }
}
