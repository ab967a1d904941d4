package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * MongoDB through its Java driver, light: a row of "MongoDB Operations" for
 * each operation the driver runs (find, insert, count, aggregate...), with
 * the namespace, the time and the error of one that failed.
 */
@MethodPattern({"com.mongodb.operation.*Operation:execute(com.mongodb.binding.ReadBinding)",
        "com.mongodb.operation.*Operation:execute(com.mongodb.binding.WriteBinding)",
        "com.mongodb.internal.operation.*Operation:execute(com.mongodb.internal.binding.ReadBinding)",
        "com.mongodb.internal.operation.*Operation:execute(com.mongodb.internal.binding.WriteBinding)"})
public final class MongoDBLW {
    private MongoDBLW() {
    }

    public static void onEnter(@This Object operation) {
        MongoOperations.entered(operation, false);
    }

    public static void onExit(@ThrownException Throwable thrown) {
        MongoOperations.OPERATIONS.exited(thrown);
    }
}
