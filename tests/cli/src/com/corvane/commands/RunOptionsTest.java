package com.corvane.commands;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;

/** The agent options that run makes of --allocations and --exceptions, and the values it refuses. */
class RunOptionsTest {
    @Test
    void runTurnsItsOptionsIntoAgentOptions() {
        String[][] allocations = {{null, null}, {"", "alloceach=10"}, {"each-100", "alloceach=100"},
            {"1", "alloceach=1"}, {"sampled", "allocsampled"}, {"counting", "alloc_object_counting"}};
        for (String[] c : allocations) {
            assertEquals(c[1], RunCommand.allocationOption(c[0]), c[0]);
        }
        for (String value : new String[] {null, "on", "off", "disable"}) {
            assertEquals(value == null ? null : "exceptions=" + value, RunCommand.exceptionsOption(value), value);
        }
        String wrong = assertThrows(UserException.class, () -> RunCommand.allocationOption("java")).getMessage();
        assertTrue(wrong.contains("each-N"), wrong);
        wrong = assertThrows(UserException.class, () -> RunCommand.exceptionsOption("java")).getMessage();
        assertTrue(wrong.contains("on, off or disable"), wrong);
    }
}
