package com.corvane.runtime;

import com.sun.management.HotSpotDiagnosticMXBean;
import java.io.File;
import java.lang.management.ManagementFactory;

/**
 * The JVM's own heap dumper, through its diagnostic bean: the dump on
 * OutOfMemoryError, and HPROF snapshots on request. The bean is asked for
 * directly; the platform's bean server, which is slow to start, stays down.
 */
final class OomeDumper {
    private static final String OPTION = "HeapDumpOnOutOfMemoryError";

    private OomeDumper() {
    }

    private static HotSpotDiagnosticMXBean bean() {
        return ManagementFactory.getPlatformMXBean(HotSpotDiagnosticMXBean.class);
    }

    /** Makes the JVM write a heap dump when it runs out of memory. */
    static void enable() {
        try {
            bean().setVMOption(OPTION, "true");
            Callback.messageToLogFile("OOME dumper enabled");
        } catch (Throwable e) {
            Callback.messageToLogFile("warning: cannot enable the OOME dumper: " + e);
        }
    }

    /** 1 when the dump on OutOfMemoryError is on, 0 when off, -1 when the JVM can't tell. */
    static int getStatus() {
        try {
            return "true".equals(bean().getVMOption(OPTION).getValue()) ? 1 : 0;
        } catch (Throwable e) {
            return -1;
        }
    }

    /** Null on success, else why the dump failed. */
    static String dumpHeap(File file) {
        if (!Core.isHprofSupported()) {
            return "\nHPROF heap dumper is available only in Oracle JDK and OpenJDK HotSpot."
                    + "\nWith your JVM, capture memory snapshot in the profiler format.";
        }
        if (!Core.ourCanAccessMBeans) {
            return "cannot use the JVM's built-in dumper until the pause specified with the startup option \"delay\""
                    + " ended";
        }
        try {
            // The dumper refuses to overwrite the file that reserved the name.
            file.delete();
            bean().dumpHeap(file.getAbsolutePath(), true);
            return null;
        } catch (Throwable e) {
            return Core.describe(e);
        }
    }
}
