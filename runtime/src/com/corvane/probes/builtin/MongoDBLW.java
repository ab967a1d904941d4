package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * MongoDB through its Java driver, light: a row of "MongoDB Operations" for
 * each operation the driver runs (find, insert, count, aggregate...), with
 * the namespace, the time and the error of one that failed.
 */
// The executor of a client hands each operation to the cluster (and fails
// when no server answers); the operations run themselves on a binding.
@MethodPattern({"com.mongodb.*:execute(com.mongodb.operation.ReadOperation*)",
        "com.mongodb.*:execute(com.mongodb.operation.WriteOperation*)",
        "com.mongodb.*:execute(com.mongodb.internal.operation.ReadOperation*)",
        "com.mongodb.*:execute(com.mongodb.internal.operation.WriteOperation*)",
        "com.mongodb.operation.*Operation:execute(com.mongodb.binding.ReadBinding)",
        "com.mongodb.operation.*Operation:execute(com.mongodb.binding.WriteBinding)",
        "com.mongodb.internal.operation.*Operation:execute(com.mongodb.internal.binding.ReadBinding)",
        "com.mongodb.internal.operation.*Operation:execute(com.mongodb.internal.binding.WriteBinding)"})
public final class MongoDBLW {
    private MongoDBLW() {
    }

    public static void onEnter(@This Object target, @Param(1) Object argument) {
        MongoOperations.entered(target, argument, false);
    }

    public static void onExit(@ThrownException Throwable thrown) {
        MongoOperations.OPERATIONS.exited(thrown);
    }
}
