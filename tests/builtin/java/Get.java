package org.apache.hadoop.hbase.client;

/** Stands in for the HBase client's requests of one row. */
public class Get {
    private final byte[] myRow;

    public Get(byte[] row) {
        myRow = row;
    }

    public byte[] getRow() {
        return myRow;
    }
}
