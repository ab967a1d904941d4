package org.datanucleus.api.jpa;

/** Stands in for the DataNucleus transaction, with its name. */
public class JPAEntityTransaction implements javax.persistence.EntityTransaction {
    private boolean myActive;

    public void begin() { myActive = true; }
    public void commit() { myActive = false; }
    public void rollback() { myActive = false; }
    public void setRollbackOnly() { }
    public boolean getRollbackOnly() { return false; }
    public boolean isActive() { return myActive; }
}
