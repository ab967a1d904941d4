package com.corvane.probes.builtin;

/** The table "MongoDB Operations" of the probes MongoDB and MongoDBLW. */
final class MongoOperations {
    static final Operations OPERATIONS = new Operations("MongoDB Operations", "Namespace", "Filter");

    private MongoOperations() {
    }

    /**
     * An operation of the driver, run by itself (the target) or handed to an
     * executor (the argument): its kind is its class's name without
     * "Operation".
     */
    static void entered(Object target, Object argument, boolean full) {
        Object operation = isOperation(argument) ? argument : target;
        String name = operation == null ? null : operation.getClass().getName();
        name = name == null ? null : name.substring(name.lastIndexOf('.') + 1);
        if (name != null && name.endsWith("Operation")) {
            name = name.substring(0, name.length() - "Operation".length());
        }
        Object namespace = ProbeSupport.call(operation, "getNamespace");
        if (namespace == null) {
            namespace = ProbeSupport.field(operation, "namespace");
        }
        if (namespace == null) {
            namespace = ProbeSupport.call(operation, "getDatabaseName");
        }
        OPERATIONS.entered(name, namespace, full ? ProbeSupport.call(operation, "getFilter") : null, full);
    }

    private static boolean isOperation(Object value) {
        for (String type : OPERATION_TYPES) {
            if (ProbeSupport.isA(value, type)) {
                return true;
            }
        }
        return false;
    }

    private static final String[] OPERATION_TYPES = {"com.mongodb.operation.ReadOperation",
        "com.mongodb.operation.WriteOperation", "com.mongodb.internal.operation.ReadOperation",
        "com.mongodb.internal.operation.WriteOperation"};
}
