package com.datastax.driver.core;

/** Stands in for the Cassandra driver's statement, with the same name and methods. */
public abstract class Statement {
    public abstract String getKeyspace();
}
