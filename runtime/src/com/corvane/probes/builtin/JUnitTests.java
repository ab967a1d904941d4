package com.corvane.probes.builtin;

import com.corvane.probes.ClassRef;
import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * Tests of JUnit 4 and JUnit 5: a row of "JUnit Tests" for each run of a
 * test method (each repetition and each set of parameters apart), with the
 * test's class and method, its result and its time.
 */
@MethodPattern({"*:@org.junit.Test *(*)", "*:@org.junit.jupiter.api.Test *(*)",
        "*:@org.junit.jupiter.params.ParameterizedTest *(*)", "*:@org.junit.jupiter.api.RepeatedTest *(*)",
        "*:@org.junit.jupiter.api.TestFactory *(*)"})
public final class JUnitTests {
    static final TestRuns TESTS = new TestRuns("JUnit Tests");

    private JUnitTests() {
    }

    public static int onEnter(@This Object test, @ClassRef Class<?> type, @MethodName String method) {
        return TESTS.started(test, type, method);
    }

    public static void onExit(@OnEnterResult int row, @ThrownException Throwable thrown) {
        TESTS.ended(row, thrown);
    }
}
