package com.corvane.commands;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;

/** What run makes of --exceptions. */
class RunOptionsTest {
    @Test
    void runTurnsExceptionsIntoAnAgentOption() {
        assertEquals(null, RunCommand.exceptionsOption(null));
        assertEquals("exceptions=on", RunCommand.exceptionsOption("on"));
        assertEquals("exceptions=off", RunCommand.exceptionsOption("off"));
        assertEquals("exceptions=disable", RunCommand.exceptionsOption("disable"));
        UserException wrong = assertThrows(UserException.class, () -> RunCommand.exceptionsOption("java"));
        assertTrue(wrong.getMessage().contains("on, off or disable"), wrong.getMessage());
    }
}
