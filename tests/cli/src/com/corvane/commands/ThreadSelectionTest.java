package com.corvane.commands;

import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.ThreadProfile;
import java.util.List;
import org.junit.jupiter.api.Test;

class ThreadSelectionTest {
    private static ThreadProfile thread(String name, String group) {
        return new ThreadProfile(1, name, group, false, 0, 0, null);
    }

    @Test
    void namesWithWildcardsAndTheApplicationsGroups() {
        ThreadSelection named = new ThreadSelection(false, List.of("pool-*", "ma?n", "a.b"));
        assertTrue(named.accepts(thread("pool-1-thread-2", "main")));
        assertTrue(named.accepts(thread("main", "main")));
        assertTrue(named.accepts(thread("a.b", null)));
        assertFalse(named.accepts(thread("axb", null)), "a dot is no wildcard");
        assertFalse(named.accepts(thread("my-pool-1", "main")), "a name matches whole");

        ThreadSelection app = new ThreadSelection(true, null);
        assertTrue(app.accepts(thread("worker", "main")));
        assertTrue(app.accepts(thread("worker", null)), "a thread of unknown group is kept");
        assertFalse(app.accepts(thread("Common-Cleaner", "InnocuousThreadGroup")));
        assertFalse(app.accepts(thread("Reference Handler", "system")));

        ThreadSelection both = new ThreadSelection(true, List.of("*"));
        assertFalse(both.accepts(thread("Finalizer", "system")));
        assertTrue(both.accepts(thread("main", "main")));
    }
}
