import com.datastax.driver.core.AbstractSession;
import com.datastax.driver.core.SimpleStatement;
import java.util.Arrays;
import org.apache.hadoop.hbase.client.Get;
import org.apache.hadoop.hbase.client.HTable;

/**
 * Calls of known shape on clients of Cassandra, HBase and DataNucleus, as
 * their classes and methods are named (the stand-ins beside this program):
 * two statements and one that fails; a get, a put, a put of three rows and
 * a get that fails; an entity persisted and flushed in a transaction, found,
 * and one removed that was never kept.
 */
public class ClientsWork {
    public static void main(String[] args) {
        AbstractSession session = new AbstractSession();
        session.execute(new SimpleStatement("select * from items", "shop"));
        session.execute("select * from prices");
        try {
            session.execute(new SimpleStatement("select fail", "shop"));
        } catch (IllegalStateException expected) {
            System.out.println("statement: " + expected.getMessage());
        }
        HTable table = new HTable("items");
        table.get(new Get("pen".getBytes()));
        table.put(new Get("ink".getBytes()));
        table.put(Arrays.asList(new Get("a".getBytes()), new Get("b".getBytes()), new Get("c".getBytes())));
        try {
            table.get(new Get("fail".getBytes()));
        } catch (IllegalStateException expected) {
            System.out.println("get: " + expected.getMessage());
        }
        javax.persistence.EntityManager manager = new org.datanucleus.api.jpa.JPAEntityManager();
        manager.getTransaction().begin();
        manager.persist("pen");
        manager.flush();
        manager.getTransaction().commit();
        System.out.println("found: " + manager.find(String.class, 0));
        try {
            manager.remove("ink");
        } catch (IllegalArgumentException expected) {
            System.out.println("remove: " + expected.getMessage());
        }
    }
}
