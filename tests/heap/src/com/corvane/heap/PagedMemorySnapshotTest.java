package com.corvane.heap;

import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;

/**
 * The same heap and the same checks, with the file mapper's second pass
 * denied one region (a limit of 1 MB on it) and held to two pages at a
 * time, so that it maps and unmaps pages as the references come.
 */
class PagedMemorySnapshotTest extends MemorySnapshotTest {
    @Override
    String options() {
        return ",_region_limit_mb=1,_page_count=2";
    }

    @Test
    void theMapperFellBackToPages() {
        assertTrue(log.contains("FileMemoryMapper: using pages"), log);
        assertTrue(log.matches("(?s).*~FileMemoryMapper: unmapped pages: [1-9].*"), "pages were unmapped");
    }
}
