package com.corvane.profile;

import com.corvane.snapshot.Rows.FrameRow;
import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * Places in the program as a snapshot names them: a frame is a call path
 * whose top may be a "&lt;&lt;own&gt;&gt;" frame that carries the line in the
 * method below it; threads are named by their TRN.
 */
public final class Places {
    /** A frame that stands for no stack at all: stacks were off. */
    public static final int NO_STACK_FRAME = 1;

    private Places() {
    }

    /** "method:line" of a frame's top, the method alone without a line; "&lt;no stack&gt;" for frame 0. */
    public static String place(Snapshot snapshot, int frame) {
        FrameRow row = frame > 0 ? snapshot.tables().frames.get(frame) : null;
        if (row == null) {
            return frame > 0 ? "<frame " + frame + ">" : "<no stack>";
        }
        int method = snapshot.methodOfCodePoint(row.codePoint());
        int line = 0;
        if (snapshot.isOwnLineMethod(method)) {
            line = snapshot.lineOfCodePoint(row.codePoint());
            FrameRow caller = row.parent() > 0 ? snapshot.tables().frames.get(row.parent()) : null;
            if (caller == null) {
                return "<no stack>";
            }
            method = snapshot.methodOfCodePoint(caller.codePoint());
        }
        String name = snapshot.methodName(method);
        return line > 0 ? name + ":" + line : name;
    }

    /**
     * The place of the first caller of a frame's top whose method does not begin with the prefix
     * ("java.lang.Object.wait" names the program's wait, not the JDK's), with the line of its call.
     */
    public static String callerOutside(Snapshot snapshot, int frame, String prefix) {
        int call = 0;
        for (int at = frame; at > 0; ) {
            FrameRow row = snapshot.tables().frames.get(at);
            if (row == null) {
                break;
            }
            int method = snapshot.methodOfCodePoint(row.codePoint());
            if (snapshot.isOwnLineMethod(method)) {
                at = row.parent();
                continue;
            }
            String name = snapshot.methodName(method);
            if (!name.startsWith(prefix)) {
                if (call == 0) {
                    return place(snapshot, frame);
                }
                int line = snapshot.lineOfCodePoint(snapshot.tables().frames.get(call).codePoint());
                return line > 0 ? name + ":" + line : name;
            }
            call = at;
            at = row.parent();
        }
        return place(snapshot, frame);
    }

    /** The methods of a frame's path from the root to the top, own-line frames left out. */
    public static List<String> path(Snapshot snapshot, int frame) {
        List<String> path = new ArrayList<>();
        for (int at = frame; at > 0; ) {
            FrameRow row = snapshot.tables().frames.get(at);
            if (row == null) {
                break;
            }
            int method = snapshot.methodOfCodePoint(row.codePoint());
            if (!snapshot.isOwnLineMethod(method)) {
                path.add(0, snapshot.methodName(method));
            }
            at = row.parent();
        }
        return path;
    }

    /** Thread names by TRN, "&lt;thread N&gt;" for a thread without one. */
    public static Map<Integer, String> threadNames(Snapshot snapshot) {
        Map<Integer, String> names = new HashMap<>();
        for (Table.Entry<ThreadRow> thread : snapshot.tables().threads.liveEntries()) {
            String name = snapshot.string(thread.row().name());
            names.put(thread.row().trn(), name == null || name.isEmpty() ? "<thread " + thread.row().trn() + ">" : name);
        }
        return names;
    }

    static String threadName(Map<Integer, String> names, int trn) {
        return names.getOrDefault(trn, "<thread " + trn + ">");
    }
}
