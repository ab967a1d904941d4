package com.corvane.probes.builtin;

import java.util.Collection;

/** The table "HBase Operations" of the probes HBase and HBaseLW. */
final class HBaseOperations {
    static final Operations OPERATIONS = new Operations("HBase Operations", "Table", "Row");

    private HBaseOperations() {
    }

    static void entered(Object table, String operation, Object request, boolean full) {
        Object row = null;
        if (full) {
            if (request instanceof Collection) {
                row = ((Collection<?>) request).size() + " requests";
            } else {
                Object key = ProbeSupport.call(request, "getRow");
                row = key instanceof byte[] ? new String((byte[]) key, java.nio.charset.Charset.forName("ISO-8859-1")) : key;
            }
        }
        OPERATIONS.entered(operation, ProbeSupport.call(table, "getName"), row, full);
    }
}
