package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;
import java.io.File;

/**
 * The files a program opens, light: a row of the table "Files" from the
 * opening of each file stream, random access file or file channel to its
 * closing, with the file and the access; an opening that fails is a row with
 * the error. Reads and writes are left alone; the probe Files counts them.
 */
public final class FilesLW {
    private FilesLW() {
    }

    @MethodPattern("java.io.FileInputStream:<init>(java.io.File)")
    public static final class Input {
        private Input() {
        }

        public static void onReturn(@This Object stream, @Param(1) File file) {
            FileStreams.opened(stream, file, "read", false);
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
            FileStreams.opened(stream, file, append ? "append" : "write", false);
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
            FileStreams.opened(file, name, FileStreams.randomAccess(mode), false);
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
            FileStreams.channelOpened(channel, path, readable, writable, parent, false);
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
}
