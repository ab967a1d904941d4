package com.corvane.live;

import com.corvane.runtime.SharedConstants;
import java.util.ArrayList;
import java.util.List;

/** The names of the recording modes in an agent's status word. */
public final class Modes {
    private Modes() {
    }

    /** The CPU mode: "sampling", "tracing", "call counting", or null when off. */
    public static String cpu(long status) {
        long mode = status & SharedConstants.CPU_PROFILING_MASK;
        if (mode == SharedConstants.CPU_TRACING) {
            return "tracing";
        }
        if (mode == SharedConstants.CPU_CALL_COUNTING) {
            return "call counting";
        }
        return mode == SharedConstants.CPU_SAMPLING ? "sampling" : null;
    }

    /** The allocation mode, or null when off. */
    public static String allocations(long status) {
        long mode = status & SharedConstants.ALLOCATION_RECORDING_MASK;
        if (mode == SharedConstants.ALLOCATION_RECORDING_EXACT_STACKS) {
            return "allocations";
        }
        if (mode == SharedConstants.ALLOCATION_RECORDING_SAMPLED_STACKS) {
            return "allocations (sampled)";
        }
        return mode == SharedConstants.ALLOCATION_RECORDING_OBJECT_COUNTING ? "object counting" : null;
    }

    /** The recordings that run, for a one-line summary; empty when none does. */
    public static List<String> recordings(long status) {
        List<String> names = new ArrayList<>();
        if (cpu(status) != null) {
            names.add(cpu(status));
        }
        if (allocations(status) != null) {
            names.add(allocations(status));
        }
        if ((status & SharedConstants.MONITORS_BIT) != 0) {
            names.add("monitors");
        }
        return names;
    }

    public static String summary(long status) {
        List<String> names = recordings(status);
        return names.isEmpty() ? "idle" : String.join(", ", names);
    }
}
