package com.corvane.probes.builtin;

/** The table "MongoDB Operations" of the probes MongoDB and MongoDBLW. */
final class MongoOperations {
    static final Operations OPERATIONS = new Operations("MongoDB Operations", "Namespace", "Filter");

    private MongoOperations() {
    }

    /** An operation object of the driver: its kind is its class's name without "Operation". */
    static void entered(Object operation, boolean full) {
        String name = operation == null ? null : operation.getClass().getSimpleName();
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
}
