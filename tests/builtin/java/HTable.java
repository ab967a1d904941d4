package org.apache.hadoop.hbase.client;

import java.util.List;

/** Stands in for the HBase client's table, with the same name and methods; the row "fail" fails. */
public class HTable {
    private final String myName;

    public HTable(String name) {
        myName = name;
    }

    public Object getName() {
        return myName;
    }

    public Object get(Get get) {
        if (new String(get.getRow()).equals("fail")) {
            throw new IllegalStateException("region offline");
        }
        return "value";
    }

    public void put(Get put) {
    }

    public void put(List<Get> puts) {
    }
}
