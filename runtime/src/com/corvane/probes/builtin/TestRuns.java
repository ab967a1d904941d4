package com.corvane.probes.builtin;

import com.corvane.probes.Table;

/**
 * A table of tests run, for the probes JUnitTests and TestNG: a row for each
 * run of a test method, with the test, its result and its time; a failed
 * test's row holds the error.
 */
final class TestRuns {
    private final Table myTable;
    private final Table.StringColumn myTest;
    private final Table.StringColumn myResult;

    TestRuns(String table) {
        myTable = new Table(table, true);
        myTest = myTable.stringColumn("Test");
        myResult = myTable.stringColumn("Result");
    }

    int started(Object test, Class<?> type, String method) {
        try {
            int row = myTable.createRow();
            Class<?> owner = test != null ? test.getClass() : type;
            myTest.set(row, (owner == null ? "" : owner.getName() + ".") + method);
            return row;
        } catch (Throwable e) {
            return 0;
        }
    }

    /**
     * The test ended: passed when nothing was thrown, skipped for the
     * frameworks' own ways of giving up, failed for an assertion, and an
     * error for any other exception.
     */
    void ended(int row, Throwable thrown) {
        try {
            String result = "passed";
            if (thrown != null) {
                String name = thrown.getClass().getName();
                if (name.endsWith("AssumptionViolatedException") || name.endsWith("TestAbortedException")
                        || name.equals("org.testng.SkipException")) {
                    result = "skipped";
                } else {
                    result = thrown instanceof AssertionError ? "failed" : "error";
                }
            }
            myResult.set(row, result);
            myTable.close(row, thrown);
        } catch (Throwable e) {
            // the test's result stands
        }
    }
}
