package com.datastax.driver.core;

/** Stands in for the Cassandra driver's simple statement. */
public class SimpleStatement extends Statement {
    private final String myQuery;
    private final String myKeyspace;

    public SimpleStatement(String query, String keyspace) {
        myQuery = query;
        myKeyspace = keyspace;
    }

    public String getQueryString() {
        return myQuery;
    }

    @Override
    public String getKeyspace() {
        return myKeyspace;
    }
}
