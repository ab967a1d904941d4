package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * MongoDB through its Java driver: as MongoDBLW, and each row also holds the
 * filter of the operations that have one.
 */
@MethodPattern({"com.mongodb.operation.*Operation:execute(com.mongodb.binding.ReadBinding)",
        "com.mongodb.operation.*Operation:execute(com.mongodb.binding.WriteBinding)",
        "com.mongodb.internal.operation.*Operation:execute(com.mongodb.internal.binding.ReadBinding)",
        "com.mongodb.internal.operation.*Operation:execute(com.mongodb.internal.binding.WriteBinding)"})
public final class MongoDB {
    private MongoDB() {
    }

    public static void onEnter(@This Object operation) {
        MongoOperations.entered(operation, true);
    }

    public static void onExit(@ThrownException Throwable thrown) {
        MongoOperations.OPERATIONS.exited(thrown);
    }
}
