package com.corvane.probes.builtin;

import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * HBase through its Java client: as HBaseLW, and each row also holds the row
 * key of the request, or the number of requests of a list.
 */
@MethodPattern({"org.apache.hadoop.hbase.client.HTable:get(*)", "org.apache.hadoop.hbase.client.HTable:put(*)",
        "org.apache.hadoop.hbase.client.HTable:delete(*)", "org.apache.hadoop.hbase.client.HTable:exists*(*)",
        "org.apache.hadoop.hbase.client.HTable:getScanner(*)", "org.apache.hadoop.hbase.client.HTable:increment*(*)",
        "org.apache.hadoop.hbase.client.HTable:append(*)", "org.apache.hadoop.hbase.client.HTable:batch*(*)",
        "org.apache.hadoop.hbase.client.HTable:checkAnd*(*)", "org.apache.hadoop.hbase.client.HTable:mutateRow(*)"})
public final class HBase {
    private HBase() {
    }

    public static void onEnter(@This Object table, @MethodName String method, @Param(1) Object request) {
        HBaseOperations.entered(table, method, request, true);
    }

    public static void onExit(@ThrownException Throwable thrown) {
        HBaseOperations.OPERATIONS.exited(thrown);
    }
}
