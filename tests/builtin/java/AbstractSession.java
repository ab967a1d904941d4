package com.datastax.driver.core;

/** Stands in for the Cassandra driver's session: a text runs as a simple statement; "fail" fails. */
public class AbstractSession {
    public Object execute(String query) {
        return execute(new SimpleStatement(query, null));
    }

    public Object execute(Statement statement) {
        if (((SimpleStatement) statement).getQueryString().contains("fail")) {
            throw new IllegalStateException("no host available");
        }
        return "done";
    }
}
