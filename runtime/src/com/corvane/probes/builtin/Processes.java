package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.ObjectMap;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.Table;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * Processes the program starts: a row from the start to the moment the
 * program learns the exit code (waitFor or exitValue), with the command line,
 * the working folder, the process id and the exit code (-1 while unknown). A
 * start that fails closes its row with the error.
 */
@MethodPattern("java.lang.ProcessBuilder:start() java.lang.Process")
public final class Processes {
    static final Table PROCESSES = new Table("Processes", true);
    static final Table.StringColumn COMMAND = PROCESSES.stringColumn("Command line");
    static final Table.StringColumn DIRECTORY = PROCESSES.stringColumn("Directory");
    static final Table.LongColumn PID = PROCESSES.longColumn("PID");
    static final Table.IntColumn EXIT_CODE = PROCESSES.intColumn("Exit code");
    static final ObjectMap ROWS = new ObjectMap();

    private Processes() {
    }

    public static int onEnter(@This ProcessBuilder builder) {
        try {
            int row = PROCESSES.createRow();
            COMMAND.set(row, ProbeSupport.text(join(builder.command())));
            DIRECTORY.set(row, ProbeSupport.text(builder.directory()));
            EXIT_CODE.set(row, -1);
            return row;
        } catch (Throwable e) {
            return 0;
        }
    }

    public static void onExit(@OnEnterResult int row, @ReturnValue Process process, @ThrownException Throwable thrown) {
        try {
            if (thrown != null || process == null) {
                PROCESSES.close(row, thrown);
                return;
            }
            Object pid = ProbeSupport.call(process, "pid");
            if (pid instanceof Long) {
                PID.set(row, (Long) pid);
            }
            ROWS.put(process, row);
        } catch (Throwable e) {
            // the program's start stands
        }
    }

    private static String join(java.util.List<String> words) {
        StringBuilder line = new StringBuilder();
        for (String word : words) {
            if (line.length() > 0) {
                line.append(' ');
            }
            line.append(word);
        }
        return line.toString();
    }

    /** The exit code, as the program reads it. */
    @MethodPattern({"java.lang.ProcessImpl:waitFor() int", "java.lang.ProcessImpl:exitValue() int"})
    public static final class Exit {
        private Exit() {
        }

        public static void onReturn(@This Object process, @ReturnValue int code) {
            try {
                int row = ROWS.remove(process);
                if (row != 0) {
                    EXIT_CODE.set(row, code);
                    PROCESSES.close(row);
                }
            } catch (Throwable e) {
                // the program's call stands
            }
        }
    }
}
