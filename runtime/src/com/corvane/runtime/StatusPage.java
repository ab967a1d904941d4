package com.corvane.runtime;

import com.corvane.util.Strings;
import java.lang.management.ManagementFactory;
import java.lang.management.RuntimeMXBean;
import java.util.Date;
import java.util.Map;
import java.util.Properties;
import java.util.TreeMap;

/** The texts of the HTTP face: the summary page, the thread dump and the system properties. */
public final class StatusPage {
    private static final String STYLE = "body{font:14px/1.45 system-ui,sans-serif;margin:2em auto;max-width:52em;"
            + "color:#222;padding:0 1em}h1{font-size:1.5em;margin-bottom:.2em}h2{font-size:1.1em;margin:1.6em 0 .4em;"
            + "border-bottom:1px solid #ccc;padding-bottom:.2em}table{border-collapse:collapse;width:100%}"
            + "th{text-align:left;font-weight:600;width:14em;padding:.25em .8em .25em 0;vertical-align:top}"
            + "td{padding:.25em 0}td.running{color:#0a6b2d;font-weight:600}td.off{color:#777}"
            + "nav a{margin-right:1.2em}footer{margin-top:2em;color:#777;font-size:.85em}";

    private StatusPage() {
    }

    public static String html() {
        synchronized (RequestProcessing.ourRequestLock) {
            return render();
        }
    }

    public static String threadDump() {
        synchronized (RequestProcessing.ourRequestLock) {
            return TelemetryThread.dumpThreadsWithHeader();
        }
    }

    public static String systemProperties() {
        Properties properties = System.getProperties();
        TreeMap<String, String> sorted = new TreeMap<String, String>();
        for (Map.Entry<Object, Object> entry : properties.entrySet()) {
            sorted.put(String.valueOf(entry.getKey()), String.valueOf(entry.getValue()));
        }
        StringBuilder text = new StringBuilder();
        for (Map.Entry<String, String> entry : sorted.entrySet()) {
            text.append(entry.getKey()).append('=').append(escapeLineBreaks(entry.getValue())).append('\n');
        }
        return text.toString();
    }

    /** One line a property: breaks in a value are written as escapes. */
    private static String escapeLineBreaks(String value) {
        return value.replace("\\", "\\\\").replace("\n", "\\n").replace("\r", "\\r");
    }

    /** "running (...)" or "off", as the summary shows the CPU mode of the status word. */
    static String describeCpuProfiling(long status) {
        long mode = status & SharedConstants.CPU_PROFILING_MASK;
        if (mode == SharedConstants.CPU_TRACING) {
            return "running (tracing)";
        }
        if (mode == SharedConstants.CPU_CALL_COUNTING) {
            return "running (call counting)";
        }
        if (mode == SharedConstants.CPU_SAMPLING) {
            if ((status & SharedConstants.SAMPLING_MODE_ASYNC_CPU) != 0) {
                return "running (async. sampling cpu)";
            }
            if ((status & SharedConstants.SAMPLING_MODE_ASYNC_PERIODIC) != 0) {
                return "running (async. sampling periodic)";
            }
            return "running (sampling)";
        }
        return "off";
    }

    static String describeAllocationRecording(long status) {
        long mode = status & SharedConstants.ALLOCATION_RECORDING_MASK;
        if (mode == SharedConstants.ALLOCATION_RECORDING_EXACT_STACKS) {
            return "running (exact stacks)";
        }
        if (mode == SharedConstants.ALLOCATION_RECORDING_SAMPLED_STACKS) {
            return "running (sampled stacks)";
        }
        if (mode == SharedConstants.ALLOCATION_RECORDING_OBJECT_COUNTING) {
            return "running (object counting)";
        }
        return "off";
    }

    private static String onOff(long status, long bit) {
        return (status & bit) != 0 ? "running" : "off";
    }

    private static String render() {
        RuntimeMXBean runtime = ManagementFactory.getRuntimeMXBean();
        long status = Callback.getStatus();
        StringBuilder page = new StringBuilder(4096);
        page.append("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>")
                .append(Strings.escapeHtml(Core.ourSessionName)).append(" - ").append(Protocol.PRODUCT_NAME)
                .append("</title>\n<style>").append(STYLE).append("</style>\n</head>\n<body>\n<h1>")
                .append(Protocol.PRODUCT_NAME).append("</h1>\n");

        page.append("<h2>Runtime &amp; Agent</h2>\n<table id=\"runtime\">\n");
        row(page, "session", "Session name", Core.ourSessionName);
        row(page, "jvm", "JVM", runtime.getVmName() + " " + runtime.getVmVersion() + " (" + runtime.getVmVendor() + ")");
        row(page, "pid", "Process id", String.valueOf(Callback.getPid()));
        row(page, "start", "Start", new Date(runtime.getStartTime()).toString());
        row(page, "uptime", "Uptime", TelemetryThread.formatDuration(runtime.getUptime()));
        row(page, "version", "Agent version", Protocol.PRODUCT_VERSION);
        row(page, "mode", "Agent mode", Agent.isAttached() ? "Attached" : "Loaded on start");
        row(page, "port", "Port", String.valueOf(Core.ourPort));
        page.append("</table>\n");

        page.append("<h2>Profiling Activities</h2>\n<table id=\"activities\">\n");
        row(page, "cpu", "CPU profiling", describeCpuProfiling(status));
        row(page, "allocations", "Allocation recording", describeAllocationRecording(status));
        row(page, "monitors", "Monitor profiling", onOff(status, SharedConstants.MONITORS_BIT));
        row(page, "exceptions", "Exception telemetry", onOff(status, SharedConstants.EXCEPTION_PROFILING));
        row(page, "stacks", "Thread stack telemetry", onOff(status, SharedConstants.STACK_TELEMETRY));
        row(page, "deadlocks", "Deadlocks", TelemetryThread.ourDeadlocksDetected ? "detected" : "none found");
        page.append("</table>\n");

        if (Core.ourCanAccessMBeans) {
            Runtime heap = Runtime.getRuntime();
            page.append("<h2>Memory &amp; Threads</h2>\n<table id=\"memory\">\n");
            row(page, "heap", "Heap used", mb(heap.totalMemory() - heap.freeMemory()) + " of "
                    + mb(heap.totalMemory()) + " committed, " + mb(heap.maxMemory()) + " at most");
            row(page, "threads", "Threads", ManagementFactory.getThreadMXBean().getThreadCount() + " live, "
                    + ManagementFactory.getThreadMXBean().getDaemonThreadCount() + " daemon");
            row(page, "classes", "Classes loaded",
                    String.valueOf(ManagementFactory.getClassLoadingMXBean().getLoadedClassCount()));
            page.append("</table>\n");
        }

        page.append("<nav><a href=\"/dump-threads\">Thread dump</a><a href=\"/system-properties\">System"
                + " properties</a></nav>\n<footer>").append(Strings.escapeHtml(new Date().toString()))
                .append("</footer>\n</body>\n</html>\n");
        return page.toString();
    }

    private static String mb(long bytes) {
        return String.format("%.1f MB", bytes / 1048576.0);
    }

    private static void row(StringBuilder page, String id, String name, String value) {
        String css = value.startsWith("running") ? " class=\"running\"" : value.equals("off") ? " class=\"off\"" : "";
        page.append("<tr><th>").append(Strings.escapeHtml(name)).append("</th><td id=\"").append(id).append('"')
                .append(css).append('>').append(Strings.escapeHtml(value)).append("</td></tr>\n");
    }
}
