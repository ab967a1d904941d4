package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.ObjectMap;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.Table;
import com.corvane.probes.This;

/**
 * Folders listed through directory streams: a row of "Directory Streams"
 * from the opening of each stream to its closing, with the folder and the
 * number of entries the program read from it.
 */
@MethodPattern("sun.nio.fs.UnixDirectoryStream:<init>(*)")
public final class DirectoryStreams {
    static final Table STREAMS = new Table("Directory Streams", true);
    static final Table.StringColumn FOLDER = STREAMS.stringColumn("Folder");
    static final Table.IntColumn ENTRIES = STREAMS.intColumn("Entries");
    static final ObjectMap ROWS = new ObjectMap();
    // Entries read, by stream; and the stream of each iterator.
    static final WeakObjects<int[]> COUNTS = new WeakObjects<int[]>();
    static final WeakObjects<int[]> ITERATORS = new WeakObjects<int[]>();

    private DirectoryStreams() {
    }

    public static void onReturn(@This Object stream, @Param(1) Object folder) {
        try {
            int row = STREAMS.createRow();
            if (row == 0) {
                return;
            }
            FOLDER.set(row, ProbeSupport.text(folder));
            ROWS.put(stream, row);
            COUNTS.put(stream, new int[1]);
        } catch (Throwable e) {
            // the program's stream stands
        }
    }

    @MethodPattern("sun.nio.fs.UnixDirectoryStream:iterator(java.nio.file.DirectoryStream) java.util.Iterator")
    public static final class Iterate {
        private Iterate() {
        }

        public static void onReturn(@This Object stream, @ReturnValue Object iterator) {
            int[] count = COUNTS.get(stream);
            if (count != null && iterator != null) {
                ITERATORS.put(iterator, count);
            }
        }
    }

    @MethodPattern("sun.nio.fs.UnixDirectoryStream$UnixDirectoryIterator:readNextEntry() java.nio.file.Path")
    public static final class Entry {
        private Entry() {
        }

        public static void onReturn(@This Object iterator, @ReturnValue Object entry) {
            int[] count = entry == null ? null : ITERATORS.get(iterator);
            if (count != null) {
                synchronized (count) {
                    count[0]++;
                }
            }
        }
    }

    // Both kinds of stream close through it.
    @MethodPattern("sun.nio.fs.UnixDirectoryStream:closeImpl() boolean")
    public static final class Close {
        private Close() {
        }

        public static void onReturn(@This Object stream) {
            try {
                int row = ROWS.remove(stream);
                int[] count = COUNTS.remove(stream);
                if (row != 0) {
                    ENTRIES.set(row, count == null ? 0 : count[0]);
                    STREAMS.close(row);
                }
            } catch (Throwable e) {
                // the program's close stands
            }
        }
    }
}
