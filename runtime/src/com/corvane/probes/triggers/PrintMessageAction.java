package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.OutputStream;
import java.lang.management.GarbageCollectorMXBean;
import java.lang.management.ManagementFactory;
import java.lang.management.MemoryPoolMXBean;
import java.lang.management.MemoryType;
import java.lang.management.ThreadInfo;
import java.text.SimpleDateFormat;
import java.util.Date;

/**
 * Writes the message, its macros ("${NAME}" or "${NAME PARAMS}") replaced, to
 * `output`: "stdout" (the default), "stderr", "log" (the agent's log file),
 * or else the path of a file that the line is appended to. The method macros
 * take their values from the call of a method listener; a macro that has no
 * value here prints "<unknown>".
 */
public class PrintMessageAction extends Action {
    public String myMessage;
    public String myOutput;

    @Override
    protected void perform() throws IOException {
        String text = expand(myMessage == null ? "" : myMessage);
        String output = myOutput == null || myOutput.length() == 0 ? "stdout" : myOutput;
        if (output.equals("stdout")) {
            System.out.println(text);
        } else if (output.equals("stderr")) {
            System.err.println(text);
        } else if (output.equals("log")) {
            Callback.messageToLogFile(text);

        } else {
            OutputStream file = new FileOutputStream(output, true);
            try {
                file.write((text + "\n").getBytes("UTF-8"));
            } finally {
                file.close();
            }
        }
    }

    static String expand(String message) {
        StringBuilder result = new StringBuilder();
        int at = 0;
        for (;;) {
            int start = message.indexOf("${", at);
            int end = start < 0 ? -1 : message.indexOf('}', start);
            if (end < 0) {
                return result.append(message, at, message.length()).toString();
            }
            result.append(message, at, start);
            String macro = message.substring(start + 2, end);
            int blank = macro.indexOf(' ');
            String name = blank < 0 ? macro : macro.substring(0, blank);
            MethodCall call = MethodCall.current();
            String value = call != null ? call.macro(name, blank < 0 ? null : macro.substring(blank + 1)) : null;
            if (value == null) {
                value = valueOf(name);
            }
            result.append(value == null ? "<unknown>" : value);
            at = end + 1;
        }
    }

    private static String usedByPool(MemoryType type) {
        StringBuilder text = new StringBuilder();
        for (MemoryPoolMXBean pool : ManagementFactory.getMemoryPoolMXBeans()) {
            if (pool.getType() == type && pool.getUsage() != null) {
                text.append(text.length() == 0 ? "" : ", ").append(pool.getName()).append(": ")
                        .append(pool.getUsage().getUsed()).append(" bytes");
            }
        }
        return text.toString();
    }

    private static String dump(ThreadInfo[] threads) {
        StringBuilder text = new StringBuilder();
        for (ThreadInfo thread : threads) {
            if (thread == null) {
                continue;
            }
            text.append('"').append(thread.getThreadName()).append("\" ").append(thread.getThreadState()).append('\n');
            for (StackTraceElement element : thread.getStackTrace()) {
                text.append("\tat ").append(element).append('\n');
            }
        }
        return text.toString();
    }

    /** A macro's value; null when it has none here. */
    private static String valueOf(String name) {
        if (name.equals("DateTime")) {
            return new SimpleDateFormat("yyyy-MM-dd HH:mm:ss").format(new Date());
        }
        if (name.equals("Uptime")) {
            return ManagementFactory.getRuntimeMXBean().getUptime() + " ms";
        }
        if (name.equals("UsedHeap")) {
            return ManagementFactory.getMemoryMXBean().getHeapMemoryUsage().getUsed() + " bytes";
        }
        if (name.equals("AllocatedHeap")) {
            return ManagementFactory.getMemoryMXBean().getHeapMemoryUsage().getCommitted() + " bytes";
        }
        if (name.equals("UsedNonHeap")) {
            return ManagementFactory.getMemoryMXBean().getNonHeapMemoryUsage().getUsed() + " bytes";
        }
        if (name.equals("AllocatedNonHeap")) {
            return ManagementFactory.getMemoryMXBean().getNonHeapMemoryUsage().getCommitted() + " bytes";
        }
        if (name.equals("UsedHeapByPool") || name.equals("UsedNonHeapByPool")) {
            return usedByPool(name.equals("UsedHeapByPool") ? MemoryType.HEAP : MemoryType.NON_HEAP);
        }
        if (name.equals("GcTime")) {
            long ms = 0;
            for (GarbageCollectorMXBean collector : ManagementFactory.getGarbageCollectorMXBeans()) {
                ms += Math.max(0, collector.getCollectionTime());
            }
            return ms + " ms";
        }
        if (name.equals("CpuTime")) {
            return Callback.getProcessCpuTimeNs(false) / 1000000 + " ms";
        }
        if (name.equals("ProcessMemory")) {
            return Callback.getProcessMemoryUsage() + " bytes";
        }
        if (name.equals("ThreadDump")) {
            return dump(ManagementFactory.getThreadMXBean().dumpAllThreads(false, false));
        }
        if (name.equals("CurrentThreadDump")) {
            return dump(new ThreadInfo[] {
                ManagementFactory.getThreadMXBean().getThreadInfo(Thread.currentThread().getId(), Integer.MAX_VALUE)});
        }
        if (name.equals("ThreadCount")) {
            return String.valueOf(ManagementFactory.getThreadMXBean().getThreadCount());
        }
        if (name.equals("DaemonThreadCount")) {
            return String.valueOf(ManagementFactory.getThreadMXBean().getDaemonThreadCount());
        }
        if (name.equals("LoadedClassCount")) {
            return String.valueOf(ManagementFactory.getClassLoadingMXBean().getLoadedClassCount());
        }
        if (name.equals("CurrentThreadName")) {
            return Thread.currentThread().getName();
        }
        return null;
    }
}
