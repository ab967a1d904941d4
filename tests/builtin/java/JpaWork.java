import java.net.URL;
import java.util.Collections;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Properties;
import javax.persistence.EntityManager;
import javax.persistence.EntityManagerFactory;
import javax.persistence.Id;
import javax.persistence.SharedCacheMode;
import javax.persistence.ValidationMode;
import javax.persistence.spi.ClassTransformer;
import javax.persistence.spi.PersistenceUnitInfo;
import javax.persistence.spi.PersistenceUnitTransactionType;
import javax.sql.DataSource;

/**
 * Work of a known shape through a JPA provider named by the argument, on an
 * in-memory database: three entities persisted in one transaction, one
 * found, a query that reads the three, one removed in a transaction rolled
 * back, and a query that fails.
 */
public class JpaWork {
    @javax.persistence.Entity(name = "Item")
    @javax.persistence.Table(name = "ITEM")
    public static class Item {
        @Id
        public int id;
        public String name;

        public Item() {
        }

        Item(int id, String name) {
            this.id = id;
            this.name = name;
        }
    }

    public static void main(String[] args) throws Exception {
        Map<String, Object> settings = new HashMap<>();
        settings.put("javax.persistence.jdbc.driver", "org.h2.Driver");
        settings.put("javax.persistence.jdbc.url", "jdbc:h2:mem:jpa;DB_CLOSE_DELAY=-1");
        settings.put("javax.persistence.jdbc.user", "sa");
        settings.put("javax.persistence.jdbc.password", "");
        settings.put("eclipselink.ddl-generation", "create-tables");
        settings.put("eclipselink.weaving", "false");
        settings.put("eclipselink.logging.level", "OFF");
        settings.put("hibernate.hbm2ddl.auto", "create");
        settings.put("hibernate.connection.driver_class", "org.h2.Driver");
        settings.put("hibernate.connection.url", "jdbc:h2:mem:jpa;DB_CLOSE_DELAY=-1");
        settings.put("hibernate.connection.username", "sa");
        settings.put("hibernate.dialect", "org.hibernate.dialect.H2Dialect");
        settings.put("openjpa.jdbc.SynchronizeMappings", "buildSchema");
        settings.put("openjpa.RuntimeUnenhancedClasses", "supported");
        settings.put("openjpa.Log", "none");
        javax.persistence.spi.PersistenceProvider provider =
                (javax.persistence.spi.PersistenceProvider) Class.forName(args[0]).getDeclaredConstructor().newInstance();
        EntityManagerFactory factory = provider.createContainerEntityManagerFactory(new Unit(), settings);
        EntityManager manager = factory.createEntityManager();
        manager.getTransaction().begin();
        for (int i = 1; i <= 3; i++) {
            manager.persist(new Item(i, "item " + i));
        }
        manager.getTransaction().commit();
        manager.clear();
        System.out.println("found: " + manager.find(Item.class, 2).name);
        List<?> all = manager.createQuery("select i from Item i order by i.id").getResultList();
        System.out.println("query: " + all.size());
        manager.getTransaction().begin();
        manager.remove(manager.find(Item.class, 1));
        manager.getTransaction().rollback();
        try {
            manager.createQuery("select x from Nothing x").getResultList();
        } catch (RuntimeException expected) {
            System.out.println("failed: " + expected.getClass().getSimpleName());
        }
        manager.close();
        factory.close();
    }

    /** The persistence unit, given in code rather than in a file. */
    static class Unit implements PersistenceUnitInfo {
        public String getPersistenceUnitName() { return "shop"; }
        public String getPersistenceProviderClassName() { return null; }
        public PersistenceUnitTransactionType getTransactionType() { return PersistenceUnitTransactionType.RESOURCE_LOCAL; }
        public DataSource getJtaDataSource() { return null; }
        public DataSource getNonJtaDataSource() { return null; }
        public List<String> getMappingFileNames() { return Collections.emptyList(); }
        public List<URL> getJarFileUrls() { return Collections.emptyList(); }
        public URL getPersistenceUnitRootUrl() { return JpaWork.class.getProtectionDomain().getCodeSource().getLocation(); }
        public List<String> getManagedClassNames() { return Collections.singletonList(Item.class.getName()); }
        public boolean excludeUnlistedClasses() { return true; }
        public SharedCacheMode getSharedCacheMode() { return SharedCacheMode.NONE; }
        public ValidationMode getValidationMode() { return ValidationMode.NONE; }
        public Properties getProperties() { return new Properties(); }
        public String getPersistenceXMLSchemaVersion() { return "2.1"; }
        public ClassLoader getClassLoader() { return JpaWork.class.getClassLoader(); }
        public void addTransformer(ClassTransformer transformer) { }
        public ClassLoader getNewTempClassLoader() { return JpaWork.class.getClassLoader(); }
    }
}
