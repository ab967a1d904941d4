package com.corvane.probes.builtin;

import com.corvane.probes.ClassRef;
import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * Tests of TestNG: a row of "TestNG Tests" for each run of a
 * test method (each invocation and each set of data apart), with the
 * test's class and method, its result and its time.
 */
@MethodPattern("*:@org.testng.annotations.Test *(*)")
public final class TestNG {
    static final TestRuns TESTS = new TestRuns("TestNG Tests");

    private TestNG() {
    }

    public static int onEnter(@This Object test, @ClassRef Class<?> type, @MethodName String method) {
        return TESTS.started(test, type, method);
    }

    public static void onExit(@OnEnterResult int row, @ThrownException Throwable thrown) {
        TESTS.ended(row, thrown);
    }
}
