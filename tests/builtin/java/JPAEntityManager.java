package org.datanucleus.api.jpa;

import java.util.ArrayList;
import java.util.List;

/**
 * Stands in for the DataNucleus entity manager, with its name: persist keeps
 * an entity, find finds it by its place, remove of one not kept fails. The
 * rest of the interface does nothing.
 */
public class JPAEntityManager implements javax.persistence.EntityManager {
    private final List<Object> myEntities = new ArrayList<>();
    private final JPAEntityTransaction myTransaction = new JPAEntityTransaction();

    public void persist(Object entity) { myEntities.add(entity); }
    public void remove(Object entity) {
        if (!myEntities.remove(entity)) {
            throw new IllegalArgumentException("not managed: " + entity);
        }
    }
    public void flush() { }
    public <T> T find(Class<T> type, Object key) { return type.cast(myEntities.get((Integer) key)); }
    public <T> T find(Class<T> type, Object key, java.util.Map<String, Object> properties) { return find(type, key); }
    public <T> T find(Class<T> type, Object key, javax.persistence.LockModeType lock) { return find(type, key); }
    public <T> T find(Class<T> type, Object key, javax.persistence.LockModeType lock, java.util.Map<String, Object> properties) {
        return find(type, key);
    }
    public javax.persistence.EntityTransaction getTransaction() { return myTransaction; }
    public <T> T merge(T a0) { return null; }
    public <T> T getReference(java.lang.Class<T> a0, java.lang.Object a1) { return null; }
    public void setFlushMode(javax.persistence.FlushModeType a0) { }
    public javax.persistence.FlushModeType getFlushMode() { return null; }
    public void lock(java.lang.Object a0, javax.persistence.LockModeType a1) { }
    public void lock(java.lang.Object a0, javax.persistence.LockModeType a1, java.util.Map<java.lang.String, java.lang.Object> a2) { }
    public void refresh(java.lang.Object a0) { }
    public void refresh(java.lang.Object a0, java.util.Map<java.lang.String, java.lang.Object> a1) { }
    public void refresh(java.lang.Object a0, javax.persistence.LockModeType a1) { }
    public void refresh(java.lang.Object a0, javax.persistence.LockModeType a1, java.util.Map<java.lang.String, java.lang.Object> a2) { }
    public void clear() { }
    public void detach(java.lang.Object a0) { }
    public boolean contains(java.lang.Object a0) { return false; }
    public javax.persistence.LockModeType getLockMode(java.lang.Object a0) { return null; }
    public void setProperty(java.lang.String a0, java.lang.Object a1) { }
    public java.util.Map<java.lang.String, java.lang.Object> getProperties() { return null; }
    public javax.persistence.Query createQuery(java.lang.String a0) { return null; }
    public <T> javax.persistence.TypedQuery<T> createQuery(javax.persistence.criteria.CriteriaQuery<T> a0) { return null; }
    public javax.persistence.Query createQuery(javax.persistence.criteria.CriteriaUpdate a0) { return null; }
    public javax.persistence.Query createQuery(javax.persistence.criteria.CriteriaDelete a0) { return null; }
    public <T> javax.persistence.TypedQuery<T> createQuery(java.lang.String a0, java.lang.Class<T> a1) { return null; }
    public javax.persistence.Query createNamedQuery(java.lang.String a0) { return null; }
    public <T> javax.persistence.TypedQuery<T> createNamedQuery(java.lang.String a0, java.lang.Class<T> a1) { return null; }
    public javax.persistence.Query createNativeQuery(java.lang.String a0) { return null; }
    public javax.persistence.Query createNativeQuery(java.lang.String a0, java.lang.Class a1) { return null; }
    public javax.persistence.Query createNativeQuery(java.lang.String a0, java.lang.String a1) { return null; }
    public javax.persistence.StoredProcedureQuery createNamedStoredProcedureQuery(java.lang.String a0) { return null; }
    public javax.persistence.StoredProcedureQuery createStoredProcedureQuery(java.lang.String a0) { return null; }
    public javax.persistence.StoredProcedureQuery createStoredProcedureQuery(java.lang.String a0, java.lang.Class... a1) { return null; }
    public javax.persistence.StoredProcedureQuery createStoredProcedureQuery(java.lang.String a0, java.lang.String... a1) { return null; }
    public void joinTransaction() { }
    public boolean isJoinedToTransaction() { return false; }
    public <T> T unwrap(java.lang.Class<T> a0) { return null; }
    public java.lang.Object getDelegate() { return null; }
    public void close() { }
    public boolean isOpen() { return false; }
    public javax.persistence.EntityManagerFactory getEntityManagerFactory() { return null; }
    public javax.persistence.criteria.CriteriaBuilder getCriteriaBuilder() { return null; }
    public javax.persistence.metamodel.Metamodel getMetamodel() { return null; }
    public <T> javax.persistence.EntityGraph<T> createEntityGraph(java.lang.Class<T> a0) { return null; }
    public javax.persistence.EntityGraph<?> createEntityGraph(java.lang.String a0) { return null; }
    public javax.persistence.EntityGraph<?> getEntityGraph(java.lang.String a0) { return null; }
    public <T> java.util.List<javax.persistence.EntityGraph<? super T>> getEntityGraphs(java.lang.Class<T> a0) { return null; }
}
