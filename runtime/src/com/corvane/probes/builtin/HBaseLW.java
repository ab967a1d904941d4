package com.corvane.probes.builtin;

import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * HBase through its Java client, light: a row of "HBase Operations" for
 * each get, put, delete, scan, increment, append, batch and check-and-mutate
 * of a table, with the table's name, the time and the error of one that
 * failed.
 */
@MethodPattern({"org.apache.hadoop.hbase.client.HTable:get(*)", "org.apache.hadoop.hbase.client.HTable:put(*)",
        "org.apache.hadoop.hbase.client.HTable:delete(*)", "org.apache.hadoop.hbase.client.HTable:exists*(*)",
        "org.apache.hadoop.hbase.client.HTable:getScanner(*)", "org.apache.hadoop.hbase.client.HTable:increment*(*)",
        "org.apache.hadoop.hbase.client.HTable:append(*)", "org.apache.hadoop.hbase.client.HTable:batch*(*)",
        "org.apache.hadoop.hbase.client.HTable:checkAnd*(*)", "org.apache.hadoop.hbase.client.HTable:mutateRow(*)"})
public final class HBaseLW {
    private HBaseLW() {
    }

    public static void onEnter(@This Object table, @MethodName String method, @Param(1) Object request) {
        HBaseOperations.entered(table, method, request, false);
    }

    public static void onExit(@ThrownException Throwable thrown) {
        HBaseOperations.OPERATIONS.exited(thrown);
    }
}
